"""What `check` found, and its table, as the tool prints it."""

from typing import Any, Dict, List, Optional, Tuple

from ._report_classes import CheckReport as _CheckReport

Point = Tuple[float, float, float]

# The flaws in the order of the library, with their words.
FLAWS = (
    ("inverted_faces", "inverted face", "inverted faces"),
    ("turned_edges", "edge of opposite windings", "edges of opposite windings"),
    ("open_edges", "open edge", "open edges"),
    ("non_manifold_edges", "non-manifold edge", "non-manifold edges"),
    ("degenerate_faces", "degenerate face", "degenerate faces"),
    ("duplicate_faces", "duplicate face", "duplicate faces"),
    ("self_intersections", "pair of intersecting faces", "pairs of intersecting faces"),
    ("inside_out_shells", "inside-out shell", "inside-out shells"),
    ("misplaced_vertices", "misplaced vertex", "misplaced vertices"),
)
_LISTED_FACES = 5
_TOLD_SIZES = 6


def number_text(number: float) -> str:
    """Six digits; whole numbers below 1e15 with separators."""
    size = abs(number)
    if 1e5 <= size < 1e15:
        return ("-" if number < 0 else "") + f"{int(size + 0.5):,}"
    text = f"{number:.6g}"
    whole = text.lstrip("-").split(".")[0].split("e")[0]
    if len(whole) > 3 and whole.isdigit():
        text = text.replace(whole, f"{int(whole):,}", 1)
    return text


def counted(count: int, one: str, several: str = "") -> str:
    """ "1 edge", "3 edges"."""
    return f"{count:,} {one if count == 1 else several or one + 's'}"


def _shortest(number: float) -> float:
    """The double of the shortest text that names this float."""
    import numpy

    return float(str(numpy.float32(number)))


class CheckReport(_CheckReport):
    """What a check found. `str()` is the tool's table.

    hole_sizes: pairs (edges of a rim, how many there are). places: for each kind of flaw found, a
    point on or near the first one. flaw_faces: for each, the first five faces. advice: lines, what
    `repair` would do.

    >>> report = povmesh.load("featuretype_open.stl").check()
    >>> report.is_closed, report.open_edges, report.hole_sizes
    (False, 576, ((36, 16),))
    >>> report.advice
    ('repair closes 8 of 16 holes; 8 of 36 edges stay open',)
    """

    hole_sizes: Tuple[Tuple[int, int], ...]
    places: Dict[str, Point]
    flaw_faces: Dict[str, Tuple[int, ...]]
    advice: Tuple[str, ...]

    @property
    def size(self) -> Optional[Point]:
        """Extent along x, y, z; None: no vertex is in use."""
        extent = tuple(_shortest(high - low) for low, high in zip(self.low, self.high))
        return None if min(extent) < 0 else (extent[0], extent[1], extent[2])

    @property
    def verdict(self) -> str:
        """ "clean", or the flaws."""
        flaws = []
        for key, one, several in FLAWS:
            count = getattr(self, key) or 0
            # Edges of opposite windings are the rims of the inverted faces.
            if count and not (key == "turned_edges" and self.inverted_faces):
                flaws.append(counted(count, one, several))
        if not flaws:
            return "clean"
        return ("prints, but has " if self.is_degenerate_only else "flaws: ") + ", ".join(flaws)

    def _holes_text(self) -> str:
        text = f"{self.holes:,}"
        sizes = [f"{count:,} of {edges:,}" for edges, count in self.hole_sizes]
        if sizes:
            sizes[0] += " edge" if self.hole_sizes[0][0] == 1 else " edges"
            if len(sizes) > _TOLD_SIZES:  # the largest is always told
                sizes = [*sizes[: _TOLD_SIZES - 1], "...", sizes[-1]]
            text += f" ({', '.join(sizes)})"
        if self.unclosed_edges:
            text += f", and {counted(self.unclosed_edges, 'open edge')} in no closed rim"
        return text

    def _volume_text(self) -> str:
        if self.volume is None or self.volume in (float("inf"), float("-inf")):
            return "unknown"
        if not self.is_closed:
            return number_text(self.volume) + " (not exact: the surface is open)"
        return number_text(self.volume) + (" (negative: wound inward)" if self.volume < 0 else "")

    def _rows(self) -> List[Tuple[str, str]]:
        def with_other(count: int, other: int, one: str, several: str) -> str:
            return f"{count:,}" + (f" ({counted(other, one, several)})" if other else "")

        if self.self_intersections is None:
            crossings = "not counted"
        elif self.self_intersections == 0:
            crossings = "0"
        else:
            crossings = counted(self.self_intersections, "pair") + " of faces"
        size = self.size
        rows = [
            ("triangles", f"{self.faces:,}"),
            ("vertices", f"{self.vertices:,}"),
            ("shells", with_other(self.shells, self.cavities, "cavity", "cavities")),
            ("size", " x ".join(map(number_text, size)) if size else "none"),
            ("volume", self._volume_text()),
            ("closed", "yes" if self.is_closed else "no"),
            ("inverted faces", f"{self.inverted_faces:,}"),
            ("open edges", f"{self.open_edges:,}"),
            ("holes", self._holes_text()),
            (
                "non-manifold faces",
                with_other(self.non_manifold_faces, self.non_manifold_edges, "edge", "edges"),
            ),
            ("degenerate faces", f"{self.degenerate_faces:,}"),
            ("duplicate faces", f"{self.duplicate_faces:,}"),
            ("self-intersections", crossings),
            ("inside-out shells", f"{self.inside_out_shells:,}"),
            ("verdict", self.verdict),
        ]
        for key, one, several in FLAWS:
            count = getattr(self, key)
            if not count:
                continue
            faces = self.flaw_faces.get(key, ())
            place = self.places.get(key)
            near = f"near ({', '.join(number_text(x) for x in place)}), " if place else ""
            listed = ("face " if len(faces) == 1 else "faces ") + ", ".join(map(str, faces))
            more = ", ..." if len(faces) == _LISTED_FACES else ""
            rows.append(("where", f"{one if count == 1 else several}: {near}{listed}{more}"))
        return rows + [("suggestion", line) for line in self.advice]

    def __str__(self) -> str:
        rows = self._rows()
        width = max(len(label) for label, _ in rows) + 2
        return "\n".join(f"  {label:<{width}}{text}" for label, text in rows)

    def to_dict(self) -> Dict[str, Any]:
        """Plain data, fit for JSON."""
        plain = super().to_dict()
        plain["hole_sizes"] = [{"edges": edges, "count": count} for edges, count in self.hole_sizes]
        plain["places"] = {key: list(place) for key, place in self.places.items()}
        plain["flaw_faces"] = {key: list(faces) for key, faces in self.flaw_faces.items()}
        return plain


def check_report(
    values: Dict[str, Any], holes: Any, places: Any, faces: Any, text: str
) -> CheckReport:
    """A report of the struct's values and the arrays of the findings."""
    if not values["has_self_intersection_count"]:
        values["self_intersections"] = None
    found: Dict[str, Point] = {}
    of_flaw: Dict[str, Tuple[int, ...]] = {}
    for index, (key, _, _) in enumerate(FLAWS[: len(places)]):
        x, y, z = (_shortest(number) for number in places[index])
        if x == x:
            found[key] = (x, y, z)
    for flaw, face in faces.tolist():
        if flaw < len(FLAWS):
            of_flaw[FLAWS[flaw][0]] = (*of_flaw.get(FLAWS[flaw][0], ()), face)
    return CheckReport(
        **values,
        hole_sizes=tuple((edges, count) for edges, count in holes.tolist()),
        places=found,
        flaw_faces=of_flaw,
        advice=tuple(filter(None, text.split("\n"))),
    )
