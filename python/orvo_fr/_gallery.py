# SPDX-License-Identifier: MIT
"""Features by name, in the files of `kova-fr enroll`."""
import ctypes
import errno
import fcntl
import hashlib
import os
import re
import secrets
import stat
import struct
from contextlib import contextmanager
from pathlib import Path
from typing import BinaryIO, Iterator, NamedTuple, Optional

import numpy as np

from . import _many
from ._models import models_digest
from ._pictures import AnyPath
from ._ranking import Match, best_of_block
from ._recognition import FEATURE_LENGTH, Features, _checked, distances

_MAGIC = b"KFRGALRY"
_FEATURE_BYTES = 4 * FEATURE_LENGTH
_BLOCK_ENTRIES = 512
# Entries whose distances are held at a time.
_SEARCH_BLOCK = 1 << 14
_LONGEST_NAME, _LONGEST_STORED_NAME = 1000, 65535
_BEGIN = struct.Struct("<8sII32s")  # magic, version, floats a feature, models
_COUNTS = struct.Struct("<QQ")  # entries, bytes of the file
_BLOCK = struct.Struct("<QII")  # first entry, entries, bytes of names
_CHECKSUM = struct.Struct("<4I")
_HEADER_BYTES = _BEGIN.size + _COUNTS.size + 2 * _CHECKSUM.size
_FIRST_CHECKSUM = (0xFFFFFFFF,) * 4
_DIGEST_BYTES = 32
# Squares of a feature's numbers sum to 1; rounding leaves less than a thousandth of this.
_MOST_OFF = 1e-3
# What moves a terminal's cursor, begins a sequence that it obeys, or turns the direction of the text.
_HARMFUL = re.compile("[\x00-\x1f\x7f-\x9f\u2028-\u202e\u2066-\u2069]")

_DAMAGED = "the gallery is damaged or cut short; restore it from a copy"


class Block(NamedTuple):
    """Entries that lie together in a file: features float32 [entries, 128]."""

    first_entry: int
    features: Features
    names: list[str]


class _Head(NamedTuple):
    version: int
    models: str
    entries: int
    end: int  # of what counts in the file
    begin: tuple[int, ...]  # checksums, of version 2
    last_block: tuple[int, ...]


def _checksum(before: tuple[int, ...], data: bytes) -> tuple[int, ...]:
    sums = (ctypes.c_uint32 * 4)(*before)
    _many.loaded().KovaPythonChecksum(sums, data, len(data))
    return tuple(sums)


def _is_header(header: bytes) -> bool:
    content, stored = header[: -_CHECKSUM.size], header[-_CHECKSUM.size :]
    return len(header) == _HEADER_BYTES and _CHECKSUM.unpack(stored) == _checksum(
        _FIRST_CHECKSUM, content
    )


def _header_of_version_2(file: BinaryIO, size: int) -> bytes:
    """The header; while it is exchanged it may fit no checksum, and then a copy stands at the end."""
    file.seek(0)
    header = file.read(_HEADER_BYTES)
    if _is_header(header) or size < 2 * _HEADER_BYTES:
        return header
    file.seek(size - _HEADER_BYTES)
    copy = file.read(_HEADER_BYTES)
    is_copy = _is_header(copy) and _COUNTS.unpack_from(copy, _BEGIN.size)[1] == size - _HEADER_BYTES
    return copy if is_copy else header


def _head_of_version_2(file: BinaryIO) -> _Head:
    seen = None
    while True:
        size = os.fstat(file.fileno()).st_size
        header = _header_of_version_2(file, size)
        if _is_header(header):
            _, _, length, models = _BEGIN.unpack_from(header)
            count, end = _COUNTS.unpack_from(header, _BEGIN.size)
            if _HEADER_BYTES <= end <= size:
                break
        # Somebody may be adding to the file: then it has changed when it is looked at again.
        if seen == (size, header):
            raise ValueError(_DAMAGED)
        seen = (size, header)
    _check_length(length)
    last_block = _CHECKSUM.unpack_from(header, _BEGIN.size + _COUNTS.size)
    begin = _checksum(_FIRST_CHECKSUM, header[: _BEGIN.size])
    return _Head(2, models.hex(), count, end, begin, last_block)


def _head_of_version_1(file: BinaryIO) -> _Head:
    """Its one digest is that of the whole file."""
    size = os.fstat(file.fileno()).st_size
    least = 16 + 8 + 32
    if size < least + _DIGEST_BYTES:
        raise ValueError(_DAMAGED)
    file.seek(0)
    digest, rest = hashlib.sha256(), size - _DIGEST_BYTES
    while rest > 0:
        piece = file.read(min(rest, 1 << 20))
        if not piece:
            raise ValueError(_DAMAGED)
        digest.update(piece)
        rest -= len(piece)
    if file.read(_DIGEST_BYTES) != digest.digest():
        raise ValueError(_DAMAGED)
    file.seek(0)
    length, count, models = struct.unpack("<12xIQ32s", file.read(least))
    _check_length(length)
    if count > (size - _DIGEST_BYTES - least) // _FEATURE_BYTES:
        raise ValueError(_DAMAGED)
    return _Head(1, models.hex(), count, size - _DIGEST_BYTES, (), ())


def _check_length(length: int) -> None:
    if length != FEATURE_LENGTH:
        raise ValueError(f"the gallery's features have {length} floats, not {FEATURE_LENGTH}")


def _head(file: BinaryIO) -> _Head:
    begin = file.read(16)
    if begin[:8] != _MAGIC:
        raise ValueError("is no gallery; make one with kova-fr enroll or Gallery.save()")
    if len(begin) < 16:
        raise ValueError(_DAMAGED)
    version = struct.unpack_from("<I", begin, 8)[0]
    if version not in (1, 2):
        raise ValueError(
            f"is a gallery of version {version}, this program knows versions 1 and 2; "
            "use the program that made it"
        )
    return _head_of_version_1(file) if version == 1 else _head_of_version_2(file)


def _names(data: bytes, count: int) -> list[str]:
    names, at = [], 0
    for _ in range(count):
        length = data[at] | data[at + 1] << 8 if at + 2 <= len(data) else len(data)
        if at + 2 + length > len(data):
            raise ValueError("the gallery's parts do not fit together; restore it from a copy")
        # A name that is no UTF-8 stays what it is when it is written again.
        names.append(data[at + 2 : at + 2 + length].decode("utf-8", "surrogateescape"))
        at += 2 + length
    if at != len(data):
        raise ValueError("the gallery's parts do not fit together; restore it from a copy")
    return names


def _features(data: bytes, first_entry: int) -> Features:
    features = np.frombuffer(data, "<f4").reshape(-1, FEATURE_LENGTH).astype(np.float32)
    wrong = _no_features(features)
    if len(wrong):
        raise ValueError(
            f"entry {first_entry + int(wrong[0])} of the gallery is no feature: its numbers are not "
            "finite or not of unit length; restore it from a copy"
        )
    return features


def _no_features(features: Features) -> "np.ndarray[int, np.dtype[np.intp]]":
    """Which of them are none."""
    with np.errstate(over="ignore", invalid="ignore"):
        off = np.abs((features * features).sum(axis=1) - 1)
    return np.flatnonzero(~(off <= _MOST_OFF))


def _blocks_of_version_1(file: BinaryIO, head: _Head) -> Iterator[Block]:
    begin = 16 + 8 + 32
    names_at = begin + head.entries * _FEATURE_BYTES
    file.seek(names_at)
    names = _names(file.read(head.end - names_at), head.entries)
    for first in range(0, head.entries, _BLOCK_ENTRIES):
        count = min(_BLOCK_ENTRIES, head.entries - first)
        file.seek(begin + first * _FEATURE_BYTES)
        data = file.read(count * _FEATURE_BYTES)
        yield Block(first, _features(data, first), names[first : first + count])


def _blocks_of_version_2(file: BinaryIO, head: _Head, since: int, until: int) -> Iterator[Block]:
    """The blocks that have entries of that range. Of others only what they say of themselves is
    read; the chain of checksums is followed through them all the same."""
    at, entries, before = _HEADER_BYTES, 0, head.begin
    while at < head.end and entries < until:
        file.seek(at)
        data = file.read(_BLOCK.size)
        if len(data) < _BLOCK.size:
            raise ValueError(_DAMAGED)
        first, count, name_bytes = _BLOCK.unpack(data)
        content = _BLOCK.size + count * _FEATURE_BYTES + name_bytes
        is_plausible = (
            first == entries
            and 0 < count <= _BLOCK_ENTRIES
            and name_bytes <= count * (2 + _LONGEST_STORED_NAME)
            and at + content + _CHECKSUM.size <= head.end
        )
        if not is_plausible:
            raise ValueError(_DAMAGED)
        is_wanted = entries + count > since
        if is_wanted:
            data += file.read(content - len(data))
        else:
            file.seek(at + content)
        stored = file.read(_CHECKSUM.size)
        if len(stored) < _CHECKSUM.size:
            raise ValueError(_DAMAGED)
        checksum = _CHECKSUM.unpack(stored)
        if is_wanted:
            if checksum != _checksum(before, data):
                raise ValueError(_DAMAGED)
            names_at = content - name_bytes
            yield Block(
                first, _features(data[_BLOCK.size : names_at], first), _names(data[names_at:], count)
            )
        at, entries, before = at + content + _CHECKSUM.size, entries + count, checksum
    if at >= head.end and (entries != head.entries or before != head.last_block):
        raise ValueError(_DAMAGED)


def _check_models(head: _Head) -> None:
    if head.models != models_digest():
        raise ValueError(
            "the gallery's features were made by other models than this package's; "
            "enroll the pictures again"
        )


@contextmanager
def _opened(path: AnyPath) -> Iterator[tuple[BinaryIO, _Head]]:
    """A gallery's file. What is wrong with it is said with its name."""
    try:
        with open(path, "rb") as file:
            head = _head(file)
            _check_models(head)
            yield file, head
    except ValueError as error:
        raise ValueError(f"{os.fspath(path)}: {error}") from error


class State(NamedTuple):
    """A gallery's file as it is now: the same as long as its entries are."""

    entries: int
    models: str
    last_block: tuple[int, ...]
    end: int


def state_of(path: AnyPath) -> State:
    """What tells a gallery's file from what it becomes by a change."""
    with _opened(path) as (_, head):
        return State(head.entries, head.models, head.last_block, head.end)


def read_blocks(path: AnyPath, since: int = 0, until: Optional[int] = None) -> Iterator[Block]:
    """The entries `since` to `until` of a gallery's file, block by block, each one checked."""
    with _opened(path) as (file, head):
        last = head.entries if until is None else min(until, head.entries)
        blocks = (
            _blocks_of_version_1(file, head)
            if head.version == 1
            else _blocks_of_version_2(file, head, since, last)
        )
        for first, features, names in blocks:
            begin, end = max(since - first, 0), min(last - first, len(names))
            if begin < end:
                yield Block(first + begin, features[begin:end], names[begin:end])


def _check_name(name: str) -> bytes:
    if not isinstance(name, str):
        raise TypeError(f"a name must be a string, not {type(name).__name__}")
    try:
        stored = name.encode()
    except UnicodeEncodeError:
        stored = b""
    if not 1 <= len(stored) <= _LONGEST_NAME or _HARMFUL.search(name):
        raise ValueError(
            f"a name has 1 to {_LONGEST_NAME} bytes of UTF-8 and no control characters, not {name!r}"
        )
    return stored


class Gallery:
    """Features by name, in memory; a name may have any number of them.

    The files are those of `kova-fr enroll`, read in versions 1 and 2 and written in version 2.
    """

    def __init__(self) -> None:
        #: The name of each entry.
        self.names: list[str] = []
        self._parts: list[Features] = []

    @property
    def features(self) -> Features:
        """float32 [entries, 128], in the order of `names`. To be read only."""
        if len(self._parts) != 1:
            none = np.empty((0, FEATURE_LENGTH), np.float32)
            self._parts = [np.concatenate([none, *self._parts])]
        view = self._parts[0].view()
        view.flags.writeable = False
        return view

    def __len__(self) -> int:
        return len(self.names)

    def add(self, name: str, feature: Features) -> None:
        """Adds a feature, float32 of shape (128,), under a name.

        Raises:
            TypeError, ValueError: no name, or no feature: those have unit length.
        """
        _check_name(name)
        row = _checked("feature", feature, (FEATURE_LENGTH,))[None].copy()
        if len(_no_features(row)):
            raise ValueError("feature must have finite numbers and unit length")
        self.names.append(name)
        self._parts.append(row)

    def remove(self, name: str) -> int:
        """Removes all features of a name. Returns how many there were."""
        kept = [i for i, other in enumerate(self.names) if other != name]
        removed = len(self.names) - len(kept)
        self._parts = [self.features[kept]]
        self.names = [self.names[i] for i in kept]
        return removed

    def search(self, features: Features, count: int = 1) -> list[list[Match]]:
        """For each feature the best entry of each of the `count` most alike names.

        Exact: all entries are compared. Of equally alike ones the earlier comes first, and a distance
        that is no finite number matches nothing, as in `kova-fr identify`.

        Args:
            features: float32 of shape (N, 128).
            count: matches wanted, at least 1.

        Returns:
            N lists of up to `count` matches, the most alike first.
        """
        wanted = _checked("features", features, (None, FEATURE_LENGTH))
        check_count(count)
        return search(wanted, Block(0, self.features, self.names), count)

    @classmethod
    def load(cls, path: AnyPath) -> "Gallery":
        """A gallery from a file.

        Raises:
            OSError: the file cannot be read.
            ValueError: it is no gallery, or damaged, or made with other models.
        """
        gallery = cls()
        for block in read_blocks(path):
            gallery.names += block.names
            gallery._parts.append(block.features)
        return gallery

    def save(self, path: AnyPath) -> None:
        """Writes the gallery to a file, whole or not at all; a new file is readable by its owner alone.

        Whoever else changed the file since it was read is overwritten: see changing().

        Raises:
            OSError: it cannot be written; PermissionError for a read-only gallery, too.
        """
        place = Path(os.path.realpath(path))
        with _locked(place.parent):
            _write(place, self._packed())

    @classmethod
    @contextmanager
    def changing(cls, path: AnyPath) -> Iterator["Gallery"]:
        """A gallery that is written back at the end of a `with`; one that is not there yet is empty.

        Nobody else, kova-fr included, changes it meanwhile. After an exception it stays as it was.
        """
        place = Path(os.path.realpath(path))
        with _locked(place.parent):
            gallery = cls.load(place) if place.exists() else cls()
            yield gallery
            _write(place, gallery._packed())

    def _packed(self) -> Iterator[bytes]:
        """The file: its header and its blocks."""
        begin = _BEGIN.pack(_MAGIC, 2, FEATURE_LENGTH, bytes.fromhex(models_digest()))
        before = _checksum(_FIRST_CHECKSUM, begin)
        blocks: list[bytes] = []
        for first in range(0, len(self), _BLOCK_ENTRIES):
            names = self.names[first : first + _BLOCK_ENTRIES]
            stored = [name.encode("utf-8", "surrogateescape") for name in names]
            tail = b"".join(struct.pack("<H", len(name)) + name for name in stored)
            features = self.features[first : first + _BLOCK_ENTRIES].astype("<f4").tobytes()
            block = _BLOCK.pack(first, len(names), len(tail)) + features + tail
            before = _checksum(before, block)
            blocks.append(block + _CHECKSUM.pack(*before))
        size = _HEADER_BYTES + sum(map(len, blocks))
        header = begin + _COUNTS.pack(len(self), size) + _CHECKSUM.pack(*before)
        yield header + _CHECKSUM.pack(*_checksum(_FIRST_CHECKSUM, header))
        yield from blocks


def search(features: Features, known: Block, count: int) -> list[list[Match]]:
    """As Gallery.search(), among these entries."""
    found: list[list[Match]] = [[] for _ in features]
    for first in range(0, len(known.names), _SEARCH_BLOCK):
        names = known.names[first : first + _SEARCH_BLOCK]
        rows = distances(features, known.features[first : first + _SEARCH_BLOCK])
        for i, row in enumerate(rows):
            found[i] = best_of_block(found[i], row, known.first_entry + first, names, count)
    return found


def check_count(count: int) -> None:
    """Of matches."""
    if isinstance(count, bool) or not isinstance(count, (int, np.integer)):
        raise TypeError(f"count must be an integer, not {type(count).__name__}")
    if count < 1:
        raise ValueError(f"count must be at least 1, not {count}")


@contextmanager
def _locked(folder: Path) -> Iterator[None]:
    """The lock of kova-fr, which is on the folder: the file itself is replaced by another."""
    descriptor = os.open(folder, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    try:
        _lock(descriptor)
        yield
    finally:
        os.close(descriptor)


def _lock(descriptor: int) -> None:
    try:
        fcntl.flock(descriptor, fcntl.LOCK_EX)
    except OSError as error:
        # Where a disk knows no locks, two that change a gallery at once are on their own.
        if error.errno not in (errno.EOPNOTSUPP, errno.ENOLCK):
            raise


def _write(place: Path, pieces: Iterator[bytes]) -> None:
    """Beside its place first, by a name that kova-fr tidies up after programs that were killed."""
    mode = 0o600
    if place.exists():
        mode = stat.S_IMODE(place.stat().st_mode)
        if mode & 0o222 == 0 or not os.access(place, os.W_OK):
            raise PermissionError(
                errno.EACCES, "is read-only; make it writable or name another gallery", str(place)
            )
    stage = place.with_name(f".kova-fr-{secrets.token_hex(8)}.part")
    flags = os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_CLOEXEC
    descriptor = os.open(stage, flags, 0o600)
    try:
        with open(descriptor, "wb") as file:
            _lock(descriptor)
            for piece in pieces:
                file.write(piece)
            os.fchmod(descriptor, mode)
            file.flush()
            os.fsync(descriptor)
            os.replace(stage, place)
    except BaseException:
        stage.unlink(missing_ok=True)
        raise
    folder = os.open(place.parent, os.O_RDONLY | os.O_DIRECTORY | os.O_CLOEXEC)
    try:
        os.fsync(folder)
    finally:
        os.close(folder)
