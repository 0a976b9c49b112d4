# SPDX-License-Identifier: MIT
"""From a trained float network to the starting point of the integer one.

Normalisation is folded into weights and biases. Then each channel that lies between two layers gets
a factor, multiplied into the layer before it and divided out of the one behind it: rectifiers,
maxima and additions let positive factors through, so the float network computes the same, while
the fixed shifts' integer ranges are used much better.
"""
import torch

from ..networks.find_layers import Keep, Part, Return
from ..networks.float_net import EPSILON, is_normalised
from ..networks.layers import Add, Conv, MaxPool, Save
from ..networks.quant_net import QuantNet

ROUNDING = 1 / 12  # variance of a rounding error
STEPS = 400


@torch.no_grad()
def folded(net):
    """{number: (weights, bias)}: weights in units of the integer weights, biases in units of the
    integer outputs, half a step added because the library rounds down."""
    out = {}
    for op in net.convs:
        n = op.number
        w, beta = getattr(net, f"w{n}").double(), getattr(net, f"beta{n}").double()
        if is_normalised(op):
            gain = getattr(net, f"gain{n}").double()
            spread = (getattr(net, f"var{n}").double() + EPSILON).sqrt()
            a = gain * (1 + getattr(net, f"gamma{n}").double()) / spread
            w = w * a.view(-1, *[1] * (w.dim() - 1))
            beta = gain * beta - a * getattr(net, f"mean{n}").double()
        out[n] = (w * 2.0**op.shift, 128 * beta + 0.5)
    return out


class _Statistics:
    """What a layer is given and what it answers, over sample pictures, in integer units."""

    def __init__(self):
        self.input_square = self.variance = self.reach = None


@torch.no_grad()
def _observe(net, x):
    statistics = {}
    plain = net.layer

    def observe(op, tensor):
        entry = statistics[op.number] = _Statistics()
        entry.input_square = 128**2 * tensor.float().square().transpose(0, 1).flatten(1).mean(1)
        out = plain(op, tensor)
        values = 128 * out.float().transpose(0, 1).flatten(1)
        entry.variance = values.var(1).clamp(min=1e-3)
        entry.reach = values.abs().quantile(0.999, dim=1) if values.shape[1] < 2**23 else (
            values.abs()[:, ::8].quantile(0.999, dim=1)
        )  # fmt: skip
        return out

    trunk, net.trunk = net.trunk, None
    net.layer = observe
    net.eval()
    net(x)
    del net.layer
    net.trunk = trunk
    return statistics


class _Groups:
    """Which tensors share their factors. outputs, inputs: {layer: group}; channels: {group: count};
    fixed: the picture and the answers; joined: {group: [(group, times)]}, what a dense layer reads of
    parts, each of whose channels has so many values."""

    def __init__(self, net):
        self.outputs, self.inputs, self.channels, self.fixed, self.joined = {}, {}, {0: 1}, {0}, {}
        self._same = {}
        self._walk(net.ops)
        self.outputs = {n: self._find(g) for n, g in self.outputs.items()}
        self.inputs = {n: self._find(g) for n, g in self.inputs.items()}
        self.joined = {
            g: [(self._find(part), times) for part, times in parts]
            for g, parts in self.joined.items()
        }
        self.fixed.add(self.outputs[net.convs[-1].number])
        self.fixed = {self._find(g) for g in self.fixed}

    def _find(self, group):
        while group in self._same:
            group = self._same[group]
        return group

    def _new(self, channels):
        self.channels[len(self.channels)] = channels
        return len(self.channels) - 1

    def _walk(self, ops):
        current, stride, kept, parts = 0, 1, None, []
        for op in ops:
            if isinstance(op, Conv):
                if parts and op.kind == "dense":
                    current = self._join(parts, op.inputs)
                self.inputs[op.number] = current
                current = self.outputs[op.number] = self._new(op.outputs)
                if op.answers:
                    self.fixed.add(current)
            elif isinstance(op, MaxPool):
                stride *= op.stride
            elif isinstance(op, (Save, Keep)):
                kept = current, stride
            elif isinstance(op, Return):
                current, stride = kept
            elif isinstance(op, Part):
                parts.append((current, stride))
            elif isinstance(op, Add) and self._find(kept[0]) != self._find(current):
                # The wider tensor's factors serve both; a narrower shortcut uses the first of them.
                self._same[self._find(kept[0])] = self._find(current)

    def _join(self, parts, inputs):
        pixels = inputs / sum(self.channels[g] / stride**2 for g, stride in parts)
        group = self._new(inputs)
        self.joined[group] = [(g, round(pixels / stride**2)) for g, stride in parts]
        return group

    def factors(self, group, logs):
        parts = self.joined.get(group, [(group, 1)])
        return torch.cat([logs[part].exp().repeat_interleave(times) for part, times in parts])


def _rescaled(op, w, bias, k_in, k_out):
    shape = (-1,) + (1,) * (w.dim() - 1)
    out = w * k_out[: op.outputs].view(shape)
    if op.kind in ("depthwise", "global"):
        out = out / k_in[: op.outputs].view(shape)
    else:
        count = w.shape[1]
        out = out / k_in[:count].view((1, -1) + (1,) * (w.dim() - 2))
    return out, bias * k_out[: op.outputs]


def _noise(op, w, k_in, k_out, entry, limit):
    """The variance that rounding and cutting off add to a layer's outputs, relative to their own."""
    taps = w[0].numel() / (1 if op.kind in ("depthwise", "global") else w.shape[1])
    square = entry.input_square.to(w) * k_in[: len(entry.input_square)] ** 2
    cut = torch.relu(w.abs() - 0.97 * limit).square()
    if op.kind in ("depthwise", "global"):
        weights = square * (taps * ROUNDING + cut.flatten(1).sum(1))
    else:
        per_input = taps * ROUNDING + cut.flatten(2).sum(2) if w.dim() > 2 else ROUNDING + cut
        weights = (per_input * square).sum(1)
    k = k_out[: op.outputs]
    over = torch.relu(k * entry.reach.to(w) - 110).square()
    return (weights / 4.0**op.shift + ROUNDING + 0.05 * over) / (k**2 * entry.variance.to(w))


def rescale(net, parameters, x):
    """Chooses the factors on sample input x; returns new parameters and the mean relative noise of
    the layers before and after."""
    statistics = _observe(net, x)
    groups = _Groups(net)
    logs = {
        g: torch.zeros(groups.channels[g], dtype=torch.double, requires_grad=g not in groups.fixed)
        for g in set(groups.outputs.values()) | {groups.inputs[net.convs[0].number]}
    }
    optimiser = torch.optim.Adam([v for v in logs.values() if v.requires_grad], lr=0.05)

    def evaluate():
        total, changed = 0.0, {}
        for op in net.convs:
            w, bias = parameters[op.number]
            k_in = groups.factors(groups.inputs[op.number], logs)
            k_out = groups.factors(groups.outputs[op.number], logs)
            new_w, new_bias = _rescaled(op, w, bias - 0.5, k_in, k_out)
            limit = net.weight_limit(op)
            noise = _noise(op, new_w, k_in, k_out, statistics[op.number], limit)
            total = total + torch.log1p(20 * noise).mean() / 20
            changed[op.number] = (new_w.detach(), new_bias.detach() + 0.5)
        return total / len(net.convs), changed

    before = None
    for _ in range(STEPS):
        loss, _ = evaluate()
        before = float(loss) if before is None else before
        optimiser.zero_grad()
        loss.backward()
        optimiser.step()
    loss, changed = evaluate()
    return changed, before, float(loss)


@torch.no_grad()
def to_integers(network, parameters, net=None):
    net = net or QuantNet(network)
    for op in net.convs:
        w, bias = parameters[op.number]
        getattr(net, f"w{op.number}").copy_(w)
        getattr(net, f"beta{op.number}").copy_(bias)
    net.clip()
    return net
