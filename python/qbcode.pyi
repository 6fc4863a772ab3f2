"""Reader of printed hexagonal dot codes in grey images."""
from typing import Dict, List, Optional, Tuple, Union

import numpy as np
import numpy.typing as npt

__version__: str

Image = npt.NDArray[np.uint8]
Point = Tuple[float, float]


class Result:
    """What one read found."""

    @property
    def status(self) -> int:
        """0, or a negative status code."""
    @property
    def name(self) -> str:
        """The status as a word, e.g. "ok" or "no-angle"."""
    @property
    def valid(self) -> bool:
        """True when the code was read."""
    @property
    def bits(self) -> List[int]:
        """Centre, then ring by ring."""
    @property
    def payload(self) -> bytes:
        """Free positions as bytes, LSB first; b"" when unread."""
    @property
    def box(self) -> Tuple[int, int, int, int]:
        """(x, y, width, height) of the code's region in input pixels."""
    @property
    def orientation(self) -> int:
        """0..5: the sixth turn of the grid the markers fit; -1 when unread."""
    @property
    def angle(self) -> float:
        """Degrees the image was turned to bring the code upright."""
    @property
    def spacing(self) -> float:
        """Dot spacing in input pixels."""
    @property
    def centre(self) -> Point:
        """(x, y) of the centre dot in input pixels."""
    @property
    def corners(self) -> List[Point]:
        """(x, y) of the six corner dots of the outer ring."""
    @property
    def margin(self) -> float:
        """How far the weakest bit is from its decision, relative to the threshold."""
    @property
    def confidence(self) -> List[float]:
        """Per position, bit order: 1 at the grey level its bit says, 0 halfway to the other
        level, below 0 beyond it or on an object that is neither."""
    @property
    def decision_margin(self) -> float:
        """The weakest position's confidence."""
    @property
    def checks(self) -> Dict[str, Union[bool, int, float]]:
        """The verification's measurements: verified, blank_fill, outside, markers_matched,
        dots_matched, dots_missing, dots_unexplained, residual, correlation, marker_ratio."""
    @property
    def how(self) -> Dict[str, Union[bool, int, float]]:
        """tries, candidates, decisions, ratio, dark_dots, refined, fast_path."""
    @property
    def timings(self) -> Dict[str, float]:
        """Milliseconds: preprocess, region, angle, spacing, centre, decode, verify, total."""
    def __bool__(self) -> bool: ...


class Reader:
    """A reader kept across frames: the parameters are parsed once and its buffers reused.
    One per stream; a reader shared by threads reads one frame at a time."""

    def __init__(self, params: Optional[str] = None, yaml: Optional[str] = None) -> None:
        """params: parameter file (None searches as read() does); yaml: the file's text."""
    @property
    def status(self) -> int:
        """0, or the configuration status every read returns."""
    def read(self, image: Image) -> Result:
        """Reads the first code of a uint8 image (2-D grey, or BGR/BGRA)."""
    def read_all(self, image: Image, max_codes: int = 0) -> List[Result]:
        """Every code of the image, most promising first; [] when none is."""


def read(image: Image, params: Optional[str] = None) -> Result:
    """Reads the code in a uint8 image (2-D grey, or 3-D BGR/BGRA) with a reader made for the
    call."""
def read_all(image: Image, params: Optional[str] = None, max_codes: int = 0) -> List[Result]:
    """Every code found, largest first; [] when none is."""
def render(bits: Optional[List[int]] = None, payload: Union[bytes, int, None] = None,
           rings: int = 5, spacing: float = 22.0, dot: float = 13.0, rotation: float = 0.0,
           size: Tuple[int, int] = (640, 480), camera: bool = False, seed: int = 1) -> Image:
    """A code image (uint8, rows x cols) from bits or a payload. size is (width, height)."""
def grade(image: Image, params: Optional[str] = None) -> Dict[str, object]:
    """Print-quality grade of the code in the image, as a dict of scores."""
def status_name(status: int) -> str:
    """The word for a status code, e.g. status_name(-600) == "config"."""
