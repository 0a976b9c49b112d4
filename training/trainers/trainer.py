# SPDX-License-Identifier: MIT
"""What every training has in common, of either network and in either arithmetic: steps, the rate, the
following average of the weights, the engine, validation, checkpoints, and going on from one.

A training says in methods what is its own: `make_net`, `groups`, `draw`, `loss`, `validate`, and where
it has more to keep than the network, `extra_state` and `take_extra`.
"""
import copy
import json
import math
import time

import torch

from .. import engine
from .plots import draw_curves

CLIP = 5.0  # longest gradient of a float network; integers' steps do not depend on its length
LOWEST_RATE = 0.005  # of the full one, at the end


def add_common_options(add):
    add("--held-out", type=float, default=0.02, help="share of people to validate on (%(default)s)")
    add("--warm-up", type=int, default=300, help="steps until the full rate (%(default)s)")
    add("--refresh", type=int, default=500, help="steps between looks for shards (%(default)s)")
    add("--checkpoint-minutes", type=float, default=5, help="(%(default)s)")
    add("--device", default="cpu", help="cpu or cuda (%(default)s)")
    add("--threads", type=int, default=1, help="(%(default)s)")
    add("--plain", action="store_true", help="PyTorch's own operators only")
    add("--seed", type=int, default=1, help="(%(default)s)")
    add("--stop-after-minutes", type=float, default=math.inf, help="end early, with a checkpoint")


def learning_rate(progress, step, warm_up):
    """Half a wave from 1 towards 0, behind a ramp."""
    wave = 0.5 * (1 + math.cos(math.pi * min(progress, 1.0)))
    return max(wave, LOWEST_RATE) * min(1.0, (step + 1) / warm_up)


class Trainer:
    follow_steps = 1000  # over which weights are averaged
    quantised = False
    validation_batch = None  # pictures, where the engine is to compute the average's answers, too
    checkpoint_file = "checkpoint.pt"

    def __init__(self, args, goal, batch):
        """`goal`: pictures to train on in all; `batch`: pictures a step."""
        self.args, self.goal = args, goal
        self.device = torch.device(args.device)
        self.step, self.views, self.history = 0, 0, []
        self.prepare()
        self.net = self.make_net().to(self.device)
        self.average = copy.deepcopy(self.net).eval()
        self.optimiser = self.make_optimiser()
        if args.device == "cpu" and not args.plain and engine.is_possible():
            if batch % engine.MULTIPLE:
                raise SystemExit(f"a batch must be a multiple of {engine.MULTIPLE} pictures")
            self.attach(self.net, batch)
            if self.validation_batch:
                self.attach(self.average, self.validation_batch)

    # What a training says of itself.

    def prepare(self):
        """Opens what batches are drawn from."""

    def make_net(self):
        raise NotImplementedError

    def groups(self):
        """Parameters, each group with `most`, its full rate."""
        raise NotImplementedError

    def draw(self):
        """A batch, as `loss` takes it."""
        raise NotImplementedError

    def loss(self, *batch):
        raise NotImplementedError

    def validate(self):
        """Figures of the average, by name."""
        return {}

    def look_for_shards(self):
        pass

    def extra_state(self):
        return {}

    def take_extra(self, state):
        pass

    def stepped(self, rate):
        """What else moves with a step, at this share of its full rate."""

    def write_results(self):
        """What a checkpoint leaves beside itself."""

    # What all of them do.

    @property
    def progress(self):
        return self.views / self.goal

    def attach(self, net, size):
        net.trunk = engine.Trunk(net, size, self.args.threads, quantised=self.quantised)

    def make_optimiser(self):
        if self.quantised:
            return torch.optim.Adam(self.groups(), lr=1.0)
        return torch.optim.AdamW(self.groups(), lr=1.0)

    def integer_groups(self, rate):
        """Biases move more slowly: one step of theirs is a step of every output."""
        named = list(self.net.named_parameters())
        return [
            {"params": [p for name, p in named if name[0] == "w"], "most": rate},
            {"params": [p for name, p in named if name[0] == "b"], "most": 0.2 * rate},
        ]

    def train_step(self):
        if self.step % self.args.refresh == 0:
            self.look_for_shards()
        rate = learning_rate(self.progress, self.step, self.args.warm_up)
        for group in self.optimiser.param_groups:
            group["lr"] = group["most"] * rate
        pictures, *rest = self.draw()
        self.net.train()
        loss = self.loss(pictures, *rest)
        # Gradients stay where the engine writes them.
        self.optimiser.zero_grad(set_to_none=False)
        loss.backward()
        if not self.quantised:
            torch.nn.utils.clip_grad_norm_(self.net.parameters(), CLIP)
        self.optimiser.step()
        if self.quantised:
            self.net.clip()
        self.stepped(rate)
        self._follow()
        self.step += 1
        self.views += len(pictures)
        return loss.detach()

    @torch.no_grad()
    def _follow(self):
        """The average of the weights over the last steps generalises better than the weights."""
        keep = min(1 - 1 / self.follow_steps, (self.step + 1) / (self.step + 10))
        for slow, fast in zip(self.average.parameters(), self.net.parameters()):
            slow.lerp_(fast, 1 - keep)
        for slow, fast in zip(self.average.buffers(), self.net.buffers()):
            slow.lerp_(fast, 1 - keep)

    def save(self):
        path = self.args.out / self.checkpoint_file
        state = {
            "net": self.net.state_dict(),
            "average": self.average.state_dict(),
            "optimiser": self.optimiser.state_dict(),
            "step": self.step,
            "views": self.views,
            "history": self.history,
            **self.extra_state(),
        }
        torch.save(state, path.with_suffix(".new"))
        path.with_suffix(".new").replace(path)
        self.write_results()
        (self.args.out / "history.json").write_text(json.dumps(self.history))
        draw_curves(self.history, self.args.out / "curves.png")

    def resume(self):
        """Goes on from the checkpoint, if there is one. The rates are those asked for now."""
        path = self.args.out / self.checkpoint_file
        if not path.exists():
            return False
        state = torch.load(path, map_location=self.device)
        self.net.load_state_dict(state["net"])
        self.average.load_state_dict(state["average"])
        self.take_extra(state)
        most = [group["most"] for group in self.optimiser.param_groups]
        self.optimiser.load_state_dict(state["optimiser"])
        for group, rate in zip(self.optimiser.param_groups, most):
            group["most"] = rate
        self.step, self.views, self.history = state["step"], state["views"], state["history"]
        print(f"resumed at {self.views} views", flush=True)
        return True

    def checkpoint(self):
        result = self.validate()
        if result:
            self.history.append({"views": self.views, **result})
            text = "  ".join(f"{name} {value:.4f}" for name, value in result.items())
            print("held-out people: " + text, flush=True)
        self.save()

    def run(self):
        begin = last_save = last_print = time.time()
        losses, printed_views = [], self.views
        while self.progress < 1 and time.time() - begin < 60 * self.args.stop_after_minutes:
            losses.append(self.train_step())
            if self.step % 50 == 0:
                now = time.time()
                loss = float(torch.stack(losses).mean())
                speed = (self.views - printed_views) / (now - last_print)
                print(
                    f"step {self.step}  views {self.views}  {100 * self.progress:.1f} %  "
                    f"loss {loss:.3f}  {speed:.0f} img/s",
                    flush=True,
                )
                self.history.append({"views": self.views, "loss": loss})
                losses, printed_views, last_print = [], self.views, now
            if time.time() - last_save > 60 * self.args.checkpoint_minutes:
                self.checkpoint()
                last_save = last_print = time.time()
                printed_views = self.views
        self.checkpoint()
