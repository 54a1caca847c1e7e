"""Sampled values as NumPy sees them."""

import ast
import difflib
import struct
from typing import TYPE_CHECKING, Any, Dict, Iterator, List, Mapping

import numpy as np
import numpy.typing as npt

from ._html import count, table
from ._program import PathLike

if TYPE_CHECKING:
    import pandas

TIME = "time"


def load(path: PathLike) -> "npt.NDArray[Any]":
    """Maps a file of ``gk replay --columns`` into memory, read-only and without copying.

    Parameters
    ----------
    path : path
        A ``.npy`` file with a structured array of one dimension.

    Returns
    -------
    ndarray
        Of shape (rows,). It stays readable when the file is removed. `numpy.load` reads the same
        files; only of many keys (some 100) does it ask for a larger ``max_header_size``.
    """
    with open(path, "rb") as file:
        magic = file.read(8)
        if magic[:6] != b"\x93NUMPY":
            raise ValueError(f"{path} is no .npy file")
        size_format = "<H" if magic[6] == 1 else "<I"
        (size,) = struct.unpack(size_format, file.read(struct.calcsize(size_format)))
        header: Dict[str, Any] = ast.literal_eval(file.read(size).decode())
        offset = file.tell()
    dtype = np.dtype(header["descr"])
    shape = header["shape"]
    if shape == (0,):
        empty = np.empty(shape, dtype)
        empty.flags.writeable = False
        return empty
    return np.memmap(path, dtype, "r", offset, shape)


class Samples(Mapping[str, "npt.NDArray[Any]"]):
    """The values of some keys after every tick: a mapping from keys to arrays.

    All arrays have the shape (ticks,), are read-only views of one table in memory that is mapped
    from a file, and outlive the run. Floats are float32, NaN while a key is not there; ints are
    int32.

    Attributes
    ----------
    time : ndarray of float64, shape (ticks,)
        Seconds since the start of the run.
    array : structured ndarray, shape (ticks,)
        The table itself: the field "time" and one a key.
    """

    def __init__(self, array: "npt.NDArray[Any]") -> None:
        self.array = array

    @property
    def time(self) -> "npt.NDArray[np.float64]":
        return np.asarray(self.array[TIME])

    @property
    def _keys(self) -> List[str]:
        return [name for name in self.array.dtype.names or () if name != TIME]

    def __getitem__(self, key: str) -> "npt.NDArray[Any]":
        if key not in self._keys:
            near = difflib.get_close_matches(key, self._keys, 1)
            hint = f"; did you mean {near[0]}?" if near else ""
            raise KeyError(f"{key} was not sampled{hint}")
        return np.asarray(self.array[key])

    def __iter__(self) -> Iterator[str]:
        return iter(self._keys)

    def __len__(self) -> int:
        """The number of keys. That of ticks is the length of `time`."""
        return len(self._keys)

    def __eq__(self, other: object) -> bool:
        return self is other

    def __hash__(self) -> int:
        return id(self)

    def to_pandas(self) -> "pandas.DataFrame":
        """A DataFrame with a column a key; the index "time" is in seconds."""
        import pandas

        index = pandas.Index(self.time, name=TIME)
        return pandas.DataFrame({key: self[key] for key in self}, index=index)

    def __repr__(self) -> str:
        if len(self.array) == 0:
            return f"<Samples: {count(len(self), 'key')}, no ticks>"
        time = self.time
        return (
            f"<Samples: {count(len(self), 'key')}, {count(len(time), 'tick')}"
            f" from {time[0]:.3f} to {time[-1]:.3f} s>"
        )

    def _repr_html_(self) -> str:
        rows = []
        for key in self:
            values = self[key]
            known = values[~np.isnan(values)] if values.dtype.kind == "f" else values
            some = len(known) > 0
            rows.append(
                (
                    key,
                    str(values.dtype),
                    str(known.min()) if some else "",
                    str(known.max()) if some else "",
                    str(values[-1]) if len(values) else "",
                )
            )
        return table(("key", "type", "least", "most", "last"), rows)
