"""liblmxcore from Python: images whose planes are NumPy arrays without a copy, the audio
converter and the task scheduler."""
import enum
from types import TracebackType
from typing import Any, Callable, Iterable, Iterator, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

__version__: str

Planes = Union[np.ndarray, Tuple[np.ndarray, np.ndarray]]

class Status(enum.IntEnum):
    """Status codes: 0 success, negative errors, positive warnings."""
    NO_ERROR = 0
    FEATURE_UNSUPPORTED = -1
    PARAM_UNSUPPORTED = -2
    ITEM_UNAVAILABLE = -3
    HANDLE_INVALID = -101
    ALLOC_FAILED = -102
    DEVICE_FAILED = -201
    DEVICE_LOST = -202
    DEVICE_BUSY = -203
    EXEC_ABORTED = -301
    EXEC_INPROGRESS = -302
    EXEC_TIMEOUT = -303
    FILE_WRITE_FAILED = -401
    FILE_READ_FAILED = -402
    FILE_CLOSE_FAILED = -403
    DATA_UNAVAILABLE = -501
    DATA_NOT_INITIALIZED = -502
    INIT_FAILED = -503
    STREAM_CONFIG_CHANGED = -601
    POWER_UID_ALREADY_REGISTER = -701
    POWER_UID_NOT_REGISTERED = -702
    POWER_ILLEGAL_STATE = -703
    POWER_PROVIDER_NOT_EXISTS = -704
    CAPTURE_CONFIG_ALREADY_SET = -801
    TIME_GAP = 101
    PARAM_INPLACE = 102
    DATA_NOT_CHANGED = 103
    PROCESS_FAILED = 104

class LmxError(RuntimeError):
    """A library operation answered a failing status."""
    status: Union[Status, int]
    text: str
    def __init__(self, status: Union[Status, int], text: str, what: str = ...) -> None: ...

class Format(enum.IntEnum):
    """Pixel formats, by the names the library prints."""
    YUY2 = 0x10000
    NV12 = 0x10001
    BGRA = 0x10002
    BGR = 0x10003
    Y8 = 0x10004
    RGBA = 0x10202
    RGB = 0x10203
    DEPTH = 0x20000
    DEPTH_NATIVE = 0x20001
    DEPTH_FLOAT = 0x20002
    Y16 = 0x40000
    Y8_REL = 0x80000
    DEPTH_CONF = 0x40000004

DEPTH_SCALE: int
"""Metadata identifier of an image's depth scale (a float32)."""

class Allocator:
    """The library's allocator service: creates images and audio objects."""
    def __init__(self) -> None: ...
    def image(self, width: int, height: int, format: Format) -> Image:
        """A new image of width x height pixels (at least 1 each) whose native format is `format`."""
    def audio(self, samples: npt.NDArray[Any], rate: int, channels: Optional[int] = None) -> Audio:
        """A new audio object holding a copy of int16 or float32 samples: (frames, channels),
        or flat with `channels` interleaved (default 1)."""

class PlaneArray(np.ndarray):
    """A NumPy array over the planes of an image, handed out by a `with` block. Once its
    block has ended, it and every view derived from it raise ValueError on any use."""

class ImageAccess:
    """The acquisition of an image in one format, for a `with` block.

    Entering returns PlaneArrays over the planes (NV12: a (Y, UV) tuple). Leaving ends the
    acquisition; from then on those arrays and their views raise ValueError on use."""
    def __enter__(self) -> Planes: ...
    def __exit__(self, kind: Optional[type], value: Optional[BaseException],
                 traceback: Optional[TracebackType]) -> None: ...
    @property
    def pointers(self) -> Tuple[int, ...]:
        """Addresses of the acquired planes (empty outside the block)."""

class Image:
    """An image object: one frame held in several formats, converted on demand."""
    @property
    def width(self) -> int: ...
    @property
    def height(self) -> int: ...
    @property
    def format(self) -> Format:
        """The native format."""
    def read(self, format: Optional[Format] = None, rotate: int = 0) -> ImageAccess:
        """Read access in `format` (None: native), rotated by 0, 90, 180 or 270 degrees."""
    def write(self, format: Optional[Format] = None) -> ImageAccess:
        """Write access in `format` (None: native); leaving the block makes other formats stale."""
    def to_numpy(self, format: Optional[Format] = None, rotate: int = 0) -> Planes:
        """A copy of the image in `format` (None: native; NV12: a (Y, UV) tuple)."""
    @staticmethod
    def from_numpy(array: Planes, format: Format, *, adopt: bool = False,
                   allocator: Optional[Allocator] = None) -> Image:
        """A new image holding the array (NV12: a (Y, UV) pair); adopt=True uses its memory."""
    @property
    def metadata(self) -> Metadata:
        """The image's metadata store."""
    depth_scale: float
    """Millimetres per DEPTH unit (metadata DEPTH_SCALE): a power of two such as 1, 0.5 or
    0.125, refused otherwise. DEPTH <-> DEPTH_NATIVE shift by its power of two,
    DEPTH_NATIVE <-> DEPTH_FLOAT multiply by it; unset, DEPTH -> DEPTH_FLOAT widens the
    values as they are. Reading it unset raises LmxError (ITEM_UNAVAILABLE)."""

class Metadata:
    """An object's metadata store: identifier -> bytes. Setting a float or an int stores 4
    bytes (float32 / int32); anything else is stored through its buffer."""
    def __getitem__(self, id: int) -> bytes: ...
    def __setitem__(self, id: int, value: Union[bytes, bytearray, memoryview, float, int, np.generic]) -> None: ...
    def __delitem__(self, id: int) -> None: ...
    def __contains__(self, id: int) -> bool: ...
    def __iter__(self) -> Iterator[int]: ...
    def __len__(self) -> int: ...
    def value(self, id: int, dtype: npt.DTypeLike = "f4") -> Union[int, float]:
        """The value stored under id, read as one element of `dtype`."""

class Audio:
    """An audio object: interleaved samples in 16-bit PCM or float32."""
    @property
    def rate(self) -> int: ...
    @property
    def channels(self) -> int: ...
    def to_numpy(self, dtype: Optional[npt.DTypeLike] = None) -> np.ndarray:
        """A copy of the samples, (frames,) or (frames, channels)."""

class AudioConverter:
    """The library's audio converter: mixes to mono and resamples to 16-bit PCM."""
    def __init__(self) -> None: ...
    def convert(self, samples: np.ndarray, in_rate: int, out_rate: int, out_channels: int = 1,
                channels: Optional[int] = None) -> npt.NDArray[np.int16]:
        """The whole signal at out_rate, round(frames * out_rate / in_rate) frames; samples are
        (frames, channels) or flat with `channels` interleaved. Independent of any stream."""
    def feed(self, samples: np.ndarray, in_rate: int, out_rate: int, out_channels: int = 1,
             channels: Optional[int] = None) -> npt.NDArray[np.int16]:
        """The next chunk of this converter's stream; returns the output ready so far."""
    def flush(self) -> npt.NDArray[np.int16]:
        """The held-back output of the stream; the next feed starts a new one."""

class SyncPoint:
    """Stands for an operation's outputs; wait for it or signal it."""
    def wait(self, timeout: Optional[float] = None) -> Status:
        """Waits up to timeout seconds (None: until signalled); raises LmxError for a failing
        status. Ctrl-C interrupts it."""
    def signal(self, status: int = 0) -> None: ...
    def output_status(self, output: object) -> Union[Status, int]: ...

class Scheduler:
    """The library's task scheduler with its worker pool; data keys are Python objects, kept
    alive while the scheduler may still refer to them."""
    def __init__(self) -> None: ...
    def submit(self, function: Callable[[], Optional[int]], outputs: Iterable[object] = ()) -> Optional[SyncPoint]:
        """Runs function() on a worker; with outputs returns a SyncPoint for them."""
    def request_inputs(self, inputs: Iterable[object], function: Callable[[Status], Optional[int]],
                       outputs: Iterable[object] = ()) -> Optional[SyncPoint]:
        """Calls function(status) on a worker once every input is done."""
    def mark_outputs(self, outputs: Iterable[object], status: int) -> None: ...
    def sync_point(self, outputs: Iterable[object] = ()) -> SyncPoint:
        """A new SyncPoint; one dropped unsignalled is kept until close(), then fails."""
    def close(self) -> None:
        """Runs the queued tasks, then ends the scheduler; what never ran fails with EXEC_ABORTED."""
