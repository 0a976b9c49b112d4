# SPDX-License-Identifier: MIT
"""How a training begins; among it, the C library is kept from giving memory back between steps."""
import ctypes

import torch


def keep_memory():
    """Large tensors come and go with every step; taking them from the system each time costs more
    than many an operator, since fresh pages must be cleared."""
    try:
        libc = ctypes.CDLL("libc.so.6")
    except OSError:
        return  # another C library
    trim_threshold, top_pad, mmap_threshold = -1, -2, -3
    libc.mallopt(mmap_threshold, 1 << 30)
    libc.mallopt(trim_threshold, (1 << 31) - 1)
    libc.mallopt(top_pad, 1 << 26)


def begin(args):
    """What every training's command does before anything else."""
    keep_memory()
    torch.set_num_threads(args.threads)
    torch.manual_seed(args.seed)
    args.out.mkdir(parents=True, exist_ok=True)
