# SPDX-License-Identifier: MIT
"""The networks' training passes in C++, for processors with AVX-512 and bfloat16.

Built on first use with the C++ compiler of the machine; where that or the processor's instructions
are missing, training goes on with PyTorch's own operators.
"""
import ctypes
import hashlib
import os
import subprocess
from pathlib import Path

import torch

from ..networks.layers import INPUT_SIZE, Add, Conv, MaxPool, Save
from .mirror import Mirror, trunk

_FOLDER = Path(__file__).parent
_SOURCES = sorted(_FOLDER.glob("*.h")) + [_FOLDER / "engine.cpp"]
_FLAGS = (
    "-std=c++20 -O3 -march=native -ffp-contract=off -fopenmp -fPIC -shared -Wall -Wextra -Wpedantic "
    # The compiler takes the deliberately undefined operands of its own intrinsics for mistakes.
    "-Wshadow -Wno-maybe-uninitialized -Wno-uninitialized"
).split()
_STEM, _POOLED, _DEPTHWISE, _POINTWISE, _ADD, _FIRST, _HALVING, _PATCHES = range(8)
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


class Engine:
    """The passes over a list of layers. `ends`: numbers of those whose answers are asked for."""

    def __init__(self, pictures, threads, quantised, records, ends):
        self._library = _library()
        self._engine = self._library.EngineNew(
            pictures, threads, int(quantised), (_Layer * len(records))(*records), len(records)
        )
        if not self._engine:
            raise RuntimeError("the system does not lend the matrix unit")
        self._ends = (ctypes.c_int32 * len(ends))(*ends)

    def _call(self, function, *arguments):
        function(ctypes.c_void_p(self._engine), *arguments)

    def _tensors(self, tensors):
        assert len(tensors) == len(self._ends)
        addresses = (ctypes.c_void_p * len(tensors))(*(tensor.data_ptr() for tensor in tensors))
        return len(tensors), self._ends, addresses

    def forward(self, x, training, momentum, outputs):
        self._call(
            self._library.EngineForward, _pointer(x), int(training), ctypes.c_float(momentum),
            *self._tensors(outputs),
        )  # fmt: skip

    def backward(self, gradients):
        self._call(self._library.EngineBackward, *self._tensors(gradients))


class Trunk:
    """A network's layers up to its head, as one operator. A recognition network in float arithmetic
    is worked on in place, so its parameters must stay where they are; others are mirrored."""

    def __init__(self, net, pictures, threads, quantised=False):
        """net: a FloatNet or QuantNet."""
        assert pictures % MULTIPLE == 0
        in_place = net.network == "fr" and not quantised
        self.net = net if in_place else Mirror(net, quantised)
        self.mirror = None if in_place else self.net
        self.pictures, self.quantised = pictures, quantised
        self.outputs = {}  # number of a layer -> index in the engine
        operations = trunk(net.ops)
        self.operations = len(operations)
        records = self._records(operations)
        self._engine = Engine(pictures, threads, quantised, records, [len(records) - 1])
        self.anchor = torch.zeros(1, requires_grad=True)  # makes PyTorch call the backward pass

    def _tensor(self, name):
        tensor = getattr(self.net, name)
        assert tensor.is_contiguous() and tensor.dtype == torch.float32
        if tensor.requires_grad and tensor.grad is None:
            tensor.grad = torch.zeros_like(tensor)
        return tensor

    def _records(self, operations):
        """One for each operation but the shortcuts, and but the maxima that are part of the layer
        behind them."""
        records, size, pooled, shortcut = [], INPUT_SIZE[self.net.network], False, -1
        pooled_channels = list(self.mirror.pooled) if self.mirror else []
        for op in operations:
            current = len(records) - 1
            if isinstance(op, Save):
                shortcut = current
                continue
            if isinstance(op, MaxPool) and op.stride == 1:
                pooled = True
                continue
            record = _Layer(source=current, shortcut=shortcut)
            if isinstance(op, Add):
                record.kind, record.outputs, record.shift = _ADD, records[-1].outputs, op.out_shift
                record.branch_shift, record.shortcut_shift = op.branch_shift, op.shortcut_shift
            elif isinstance(op, MaxPool):
                record.kind, record.outputs, size = _HALVING, pooled_channels.pop(0), size // 2
            else:
                size = -(-size // op.stride) - (1 if pooled and op.stride == 1 else 0)
                self._describe(record, op, pooled)
                self.outputs[op.number] = len(records)
                pooled = False
            record.size = size
            records.append(record)
        self.shape = (self.pictures, size, size, records[-1].outputs)
        self.channels = next(op for op in reversed(operations) if isinstance(op, Conv)).outputs
        return records

    def _describe(self, record, op, pooled):
        if op.kind == "full":
            record.kind = _STEM if self.net.network == "fr" else _FIRST
        elif op.kind == "pointwise":
            record.kind = _POINTWISE
        else:
            assert pooled == (op.stride == 2)
            record.kind = _POOLED if pooled else _DEPTHWISE
        record.inputs, record.outputs = (
            self.mirror.channels[op.number] if self.mirror else (op.inputs, op.outputs)
        )
        record.rectified, record.shift = int(op.rectified), op.shift
        self._point(record, op.number, self.quantised)

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
        if self.mirror:
            self.mirror.fill()
        self._input = x.detach().float().contiguous()  # read again by the backward pass
        out = torch.empty(self.shape)
        self._engine.forward(self._input, training, momentum, [out])
        if self.mirror and training:
            self.mirror.give_statistics_back()
        return out

    def backward(self, gradient):
        self._engine.backward([gradient.float().contiguous()])
        if self.mirror:
            self.mirror.pass_gradients_on()

    def __call__(self, x, momentum):
        """[pictures, 1, side, side] -> [pictures, channels, side, side] in front of the head."""
        assert len(x) == self.pictures
        training = self.net.training
        if training and torch.is_grad_enabled():
            out = _Passes.apply(self.anchor, x, self, momentum)
        else:
            out = self.forward(x, training, momentum)
        return out.permute(0, 3, 1, 2)[:, : self.channels]


class _Passes(torch.autograd.Function):
    @staticmethod
    def forward(ctx, anchor, x, trunk, momentum):
        ctx.trunk = trunk
        return trunk.forward(x, True, momentum)

    @staticmethod
    def backward(ctx, gradient):
        ctx.trunk.backward(gradient)
        return torch.zeros(1), None, None, None
