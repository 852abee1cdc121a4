"""The reports of operations, as povmesh/context.h names them. Made by make_abi.py."""

from typing import Optional, Tuple

from ._reports import Report


class ReadReport(Report):
    """What `read` found and did, in units of the file."""

    has_texture_lines: bool
    format: str
    triangles: int
    dropped_triangles: int
    trailing_bytes: int


class WriteReport(Report):
    """What `write` found and did, in units of the file."""

    lost_colours: bool
    lost_labels: bool
    lost_texture_coordinates: bool
    bytes: int


class CheckReport(Report):
    """What `check` found and did, in units of the file."""

    is_clean: bool
    is_closed: bool
    is_degenerate_only: bool
    has_self_intersection_count: bool
    faces: int
    vertices: int
    shells: int
    cavities: int
    low: Tuple[float, float, float]
    high: Tuple[float, float, float]
    volume: Optional[float]
    inverted_faces: int
    turned_edges: int
    open_edges: int
    non_manifold_edges: int
    degenerate_faces: int
    duplicate_faces: int
    self_intersections: Optional[int]
    inside_out_shells: int
    misplaced_vertices: int
    holes: int
    unclosed_edges: int
    open_edge_corners: int
    non_manifold_faces: int


class RepairReport(Report):
    """What `repair` found and did, in units of the file."""

    were_holes_tried: bool
    dropped_shells: int
    dropped_shell_faces: int
    removed_duplicates: int
    closed_holes: int
    added_faces: int
    turned_faces: int
    kept_cavities: int
    undecided_shells: int
    open_too_long: int
    open_part_of_ring: int
    open_no_filling: int
    unclosed_edges: int


class SplitReport(Report):
    """What `split` found and did, in units of the file."""

    models: int
    left_out: int


class CutReport(Report):
    """What `cut` found and did, in units of the file."""

    models: int
    divided: int
    pegs: int


class ReduceReport(Report):
    """What `reduce` found and did, in units of the file."""

    ended_by: str
    faces_before: int
    faces_aimed: int
    faces_after: int
    normal_limit: int
    boundary: int
    link: int
    crowded: int
    too_few_faces: int


class RemeshReport(Report):
    """What `remesh` found and did, in units of the file."""

    raised: float


class ReviseReport(Report):
    """What `revise` found and did, in units of the file."""

    needles_before: int
    caps_before: int
    needles_after: int
    caps_after: int
    collapsed: int
    turned: int
    split: int
    movement: float


class HollowReport(Report):
    """What `hollow` found and did, in units of the file."""

    layers: int
    voxel_size: float
    cavity_volume: float
    saved_percent: float
    smallest_wall: Optional[float]
    mean_wall: Optional[float]


class InfillReport(Report):
    """What `infill` found and did, in units of the file."""

    cells: int
    cells_made: int
    voxel_size: float
    cells_volume: float
    density: float
    saved_percent: float
    smallest_skin: Optional[float]


class VoxelizeReport(Report):
    """What `voxelize` found and did, in units of the file."""

    voxels: int
    edge: float


class SupportReport(Report):
    """What `support` found and did, in units of the file."""

    columns: int
    columns_on_plate: int
    layers: int
    polygons: int
    longest: float
    plate: float


class StrengthReport(Report):
    """What `strength` found and did, in units of the file."""

    sections: int
    elements: int
    nodes: int
    steps: int
    voxel_size: float
    residual: float
    lowest: float
    highest: float


class DistanceReport(Report):
    """What `distance` found and did, in units of the file."""

    rms: float
    greatest: float
    there_rms: float
    there_greatest: float
    back_rms: float
    back_greatest: float


class DecomposeReport(Report):
    """What `decompose` found and did, in units of the file."""

    fits: bool
    parts: int
    cuts: int
    least_parts: int
    uniform_parts: int
    pegs: int
    cut_area: float


class LampshadeReport(Report):
    """What `lampshade` found and did, in units of the file."""

    opening_area: float
    opening_circle: float
    top_area: float
    cut_off: float
    smallest_wall: Optional[float]
    mean_wall: Optional[float]
    flat_ceiling_area: float


class BalanceReport(Report):
    """What `balance` found and did, in units of the file."""

    outcome: str
    base_area: float
    tilt_before: Optional[float]
    tilt_after: Optional[float]
    voxel_size: float
    cavity_volume: float
    saved_percent: float
    smallest_wall: Optional[float]
    centre_before: Tuple[float, float, float]
    centre_after: Tuple[float, float, float]


class OffsetReport(Report):
    """What `offset` found and did, in units of the file."""

    cell: float


class WrapReport(Report):
    """What `wrap` found and did, in units of the file."""

    bridges: int
    cavities: int
    dropped_shells: int
    cell: float
    gap: float
    bridge_area: float
    widest_bridge: float
    thickened_area: float
    buried_area: float
    there_greatest: float
    back_greatest: float


class ThicknessReport(Report):
    """What `thickness` found and did, in units of the file."""

    was_wrapped: bool
    thin_places: int
    gap_places: int
    smallest_wall: Optional[float]
    thin_area: float
    thin_share: float
    smallest_gap: Optional[float]
    gap_area: float


CLASSES = {
    "read": ReadReport,
    "write": WriteReport,
    "check": CheckReport,
    "repair": RepairReport,
    "split": SplitReport,
    "cut": CutReport,
    "reduce": ReduceReport,
    "remesh": RemeshReport,
    "revise": ReviseReport,
    "hollow": HollowReport,
    "infill": InfillReport,
    "voxelize": VoxelizeReport,
    "support": SupportReport,
    "strength": StrengthReport,
    "distance": DistanceReport,
    "decompose": DecomposeReport,
    "lampshade": LampshadeReport,
    "balance": BalanceReport,
    "offset": OffsetReport,
    "wrap": WrapReport,
    "thickness": ThicknessReport,
}

NAMED = {"reduce.ended_by": "ENDED", "balance.outcome": "BALANCE"}
