# SPDX-License-Identifier: MIT
"""From a trained network to what others read: folding and rescaling into integers, safetensors, ONNX.
Everything here is exact or says what it rounds. Nothing here draws a random number."""
