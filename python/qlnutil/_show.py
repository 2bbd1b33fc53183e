"""How records and results look: one line for the prompt, tables for notebooks."""
from __future__ import annotations

import html
from collections.abc import Iterable, Sequence
from typing import Any

# What tells a record from its fellows, in the order in which people say it.
_TELLING = {
    "h264.Sps": ("profile_idc", "level_idc", "seq_parameter_set_id", "chroma_format_idc", "pic_width_in_mbs_minus1",
                 "pic_height_in_map_units_minus1", "frame_mbs_only_flag"),
    "h264.Pps": ("pic_parameter_set_id", "seq_parameter_set_id", "entropy_coding_mode_flag", "transform_8x8_mode_flag"),
    "h264.SliceHeader": ("nal_unit_type", "slice_type", "first_mb_in_slice", "frame_num", "pic_order_cnt_lsb"),
    "hevc.Vps": ("vps_video_parameter_set_id", "vps_max_layers_minus1", "vps_max_sub_layers_minus1"),
    "hevc.Sps": ("sps_seq_parameter_set_id", "chroma_format_idc", "pic_width_in_luma_samples",
                 "pic_height_in_luma_samples", "bit_depth_luma_minus8"),
    "hevc.Pps": ("pps_pic_parameter_set_id", "pps_seq_parameter_set_id", "tiles_enabled_flag"),
    "hevc.ConfigHead": ("general_profile_idc", "general_tier_flag", "general_level_idc", "chromaFormat",
                        "bitDepthLumaMinus8", "lengthSizeMinusOne"),
    "hevc.DolbyVisionConfig": ("dv_version_major", "dv_version_minor", "dv_flags", "dv_compatibility"),
}


def _said(value: Any) -> bool:
    """Whether a value holds anything but zeros."""
    if isinstance(value, dict):
        return any(map(_said, value.values()))
    if isinstance(value, list):
        return any(map(_said, value))
    return bool(value)


def record_text(record: Any) -> str:
    """The elements that tell a record from its fellows, and how many others are not 0."""
    kind = type(record)
    name = f"{kind.__module__.removeprefix('qlnutil.')}.{kind.__qualname__}"
    elements = record.to_dict()
    said = {key for key, value in elements.items() if _said(value)}
    telling = _TELLING.get(name)
    if telling is None:
        telling = tuple(key for key in elements if key in said and isinstance(elements[key], int))[:6]
    parts = [f"{key}={elements[key]}" for key in telling]
    more = len(said - set(telling))
    if more:
        parts.append(f"... {more} more that are not 0")
    return f"{name}({', '.join(parts)})"


def _cell(value: Any) -> str:
    if isinstance(value, dict):
        return table(("element", "value"), ((key, inner) for key, inner in value.items() if _said(inner)))
    if isinstance(value, list):
        if any(isinstance(inner, dict) for inner in value):
            return table(("", "value"), ((at, inner) for at, inner in enumerate(value) if _said(inner)))
        if isinstance(value and value[0], list):
            return "<br>".join(_cell(inner) for inner in value)
        return html.escape(" ".join(map(str, value)))
    return html.escape(str(value))


def table(heads: Sequence[str], rows: Iterable[Sequence[Any]], caption: str = "") -> str:
    """An HTML table; every text in it is escaped."""
    out = ["<table>"]
    if caption:
        out.append(f"<caption>{html.escape(caption)}</caption>")
    out.append("<tr>" + "".join(f"<th>{html.escape(head)}</th>" for head in heads) + "</tr>")
    out += ["<tr>" + "".join(f"<td>{_cell(value)}</td>" for value in row) + "</tr>" for row in rows]
    return "".join(out) + "</table>"


def record_html(record: Any) -> str:
    """All elements; lists and records inside of it only where they hold something."""
    rows = ((key, value) for key, value in record.to_dict().items() if isinstance(value, int) or _said(value))
    return table(("element", "value"), rows, type(record).__qualname__)
