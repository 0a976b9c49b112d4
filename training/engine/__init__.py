# SPDX-License-Identifier: MIT
"""The recognition network's training passes in C++, for processors with AVX-512 and bfloat16.

Built on first use with the C++ compiler of the machine; where that or the processor's instructions
are missing, training goes on with PyTorch's own operators.
"""
import ctypes
import hashlib
import os
import subprocess
from pathlib import Path

import torch

from ..layers import Add, Conv, MaxPool, Save

_FOLDER = Path(__file__).parent
_SOURCES = sorted(_FOLDER.glob("*.h")) + [_FOLDER / "engine.cpp"]
_FLAGS = (
    "-std=c++20 -O3 -march=native -ffp-contract=off -fopenmp -fPIC -shared -Wall -Wextra -Wpedantic "
    # The compiler takes the deliberately undefined operands of its own intrinsics for mistakes.
    "-Wshadow -Wno-maybe-uninitialized -Wno-uninitialized"
).split()
_STEM, _POOLED, _DEPTHWISE, _POINTWISE, _ADD = range(5)
MULTIPLE = 8  # of which the number of pictures has to be one


class _Layer(ctypes.Structure):
    _fields_ = [
        (name, ctypes.c_int32)
        for name in (
            "kind", "inputs", "outputs", "size", "source", "shortcut", "rectified", "shift",
            "branch_shift", "shortcut_shift",
        )
    ] + [
        (name, ctypes.c_void_p)
        for name in (
            "weights", "gamma", "beta", "gain", "mean", "variance",
            "weights_gradient", "gamma_gradient", "beta_gradient",
        )
    ]  # fmt: skip


def is_possible():
    """Whether this machine's processor has what the engine needs."""
    try:
        flags = Path("/proc/cpuinfo").read_text().split("flags", 1)[1].splitlines()[0].split()
    except (OSError, IndexError):
        return False
    return {"avx512f", "avx512bw", "avx512vl", "avx512_bf16"} <= set(flags)


def _build_folder():
    cache = os.environ.get("XDG_CACHE_HOME") or Path.home() / ".cache"
    return Path(cache) / "orvo-fr-training"


def _library():
    text = b"".join(path.read_bytes() for path in _SOURCES) + " ".join(_FLAGS).encode()
    flags = Path("/proc/cpuinfo").read_bytes().split(b"flags", 1)[1].splitlines()[0]
    name = hashlib.sha256(text + flags).hexdigest()[:16]
    path = _build_folder() / f"engine-{name}.so"
    if not path.exists():
        path.parent.mkdir(parents=True, exist_ok=True)
        unfinished = path.with_suffix(f".{os.getpid()}")
        compiler = os.environ.get("CXX", "c++")
        subprocess.run([compiler, *_FLAGS, str(_SOURCES[-1]), "-o", str(unfinished)], check=True)
        unfinished.replace(path)
    library = ctypes.CDLL(str(path))
    library.EngineNew.restype = ctypes.c_void_p
    return library


def _pointer(tensor):
    return ctypes.c_void_p(tensor.data_ptr())


class Trunk:
    """A network's layers up to its head, as one operator. It works on the tensors of the parameters
    themselves, which therefore must stay where they are; gradients are added to `.grad`."""

    def __init__(self, net, pictures, threads, quantised=False):
        """net: a FloatNet, or the Integers of a QuantNet."""
        assert net.network == "fr" and pictures % MULTIPLE == 0
        self.net, self.pictures, self.quantised = net, pictures, quantised
        self.outputs = {}  # number of a layer -> index in the engine
        records = self._records(quantised)
        self._library = _library()
        self._engine = self._library.EngineNew(
            pictures, threads, int(quantised), (_Layer * len(records))(*records), len(records)
        )
        if not self._engine:
            raise RuntimeError("the system does not lend the matrix unit")
        self.anchor = torch.zeros(1, requires_grad=True)  # makes PyTorch call the backward pass

    def _tensor(self, name):
        tensor = getattr(self.net, name)
        assert tensor.is_contiguous() and tensor.dtype == torch.float32
        if tensor.requires_grad and tensor.grad is None:
            tensor.grad = torch.zeros_like(tensor)
        return tensor

    def _records(self, quantised):
        records, size, pooled, current, shortcut = [], 96, False, -1, -1
        for self.operations, op in enumerate(self.net.ops):
            if isinstance(op, Conv) and op.kind == "global":
                break
            if isinstance(op, MaxPool):
                pooled = True
                continue
            if isinstance(op, Save):
                shortcut = current
                continue
            record = _Layer(source=current, shortcut=shortcut)
            if isinstance(op, Add):
                record.kind, record.outputs, record.shift = _ADD, records[-1].outputs, op.out_shift
                record.branch_shift, record.shortcut_shift = op.branch_shift, op.shortcut_shift
            else:
                record.kind = {"full": _STEM, "pointwise": _POINTWISE}.get(op.kind, _DEPTHWISE)
                if pooled:
                    assert op.kind == "depthwise" and op.stride == 2
                    record.kind, pooled, size = _POOLED, False, size // 2
                record.inputs, record.outputs = op.inputs, op.outputs
                record.rectified, record.shift = int(op.rectified), op.shift
                self._point(record, op.number, quantised)
                self.outputs[op.number] = len(records)
            record.size = size
            current = len(records)
            records.append(record)
        self.shape = (self.pictures, size, size, records[-1].outputs)
        return records

    def _point(self, record, number, quantised):
        names = {"weights": "w", "beta": "beta"}
        if not quantised:
            names.update(gamma="gamma", gain="gain", mean="mean", variance="var")
        for field, name in names.items():
            tensor = self._tensor(f"{name}{number}")
            setattr(record, field, tensor.data_ptr())
            if tensor.grad is not None:
                setattr(record, f"{field}_gradient", tensor.grad.data_ptr())

    def forward(self, x, training, momentum):
        if self.quantised:
            self.net.fill()
        self._input = x.detach().float().contiguous()  # read again by the backward pass
        out = torch.empty(self.shape)
        self._library.EngineForward(
            ctypes.c_void_p(self._engine), _pointer(self._input), int(training),
            ctypes.c_float(momentum), _pointer(out),
        )  # fmt: skip
        return out

    def backward(self, gradient):
        gradient = gradient.float().contiguous()
        self._library.EngineBackward(ctypes.c_void_p(self._engine), _pointer(gradient))
        if self.quantised:
            self.net.pass_gradients_on()

    def values(self, number, size):
        """What the last forward pass gave layer `number`'s readers, [n, channels, size, size]."""
        channels = next(op.outputs for op in self.net.convs if op.number == number)
        out = torch.empty(self.pictures, size, size, channels)
        self._library.EngineValues(
            ctypes.c_void_p(self._engine), self.outputs[number], _pointer(out)
        )
        return out.permute(0, 3, 1, 2)

    def __call__(self, x, momentum):
        """[pictures, 1, 96, 96] -> [pictures, 256, 6, 6]."""
        assert len(x) == self.pictures
        training = self.net.training
        if training and torch.is_grad_enabled():
            out = _Passes.apply(self.anchor, x, self, momentum)
        else:
            out = self.forward(x, training, momentum)
        return out.permute(0, 3, 1, 2)


class _Passes(torch.autograd.Function):
    @staticmethod
    def forward(ctx, anchor, x, trunk, momentum):
        ctx.trunk = trunk
        return trunk.forward(x, True, momentum)

    @staticmethod
    def backward(ctx, gradient):
        ctx.trunk.backward(gradient)
        return torch.zeros(1), None, None, None
