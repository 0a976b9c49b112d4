# SPDX-License-Identifier: MIT
"""One trainer for both networks and both arithmetics (`trainer`), and what each training says of itself:
batches, losses, validation. What is worked out here ends in checkpoints and in `*.safetensors`; figures
that anybody quotes come from `evaluation`, through the library."""
