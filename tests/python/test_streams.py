"""Sets, records and frames of real streams, held against the tool's JSON and against an independent reader."""
from __future__ import annotations

import pathlib
import subprocess
from typing import Any

import pytest
from conftest import Tool, box, units_of

import qlnutil
from qlnutil import aac, h264, hevc


def flat(record: qlnutil.Record) -> dict[str, Any]:
    """The record's elements as the tool names them: blocks without their own name, list entries with an index."""
    out: dict[str, Any] = {}
    for name, value in record.to_dict().items():
        if name == "profile_tier_level":
            out.update(value)
        elif isinstance(value, list) and value and isinstance(value[0], dict):
            out.update({f"{name}[{at}].{key}": one for at, entry in enumerate(value) for key, one in entry.items()})
        elif isinstance(value, list) and value and isinstance(value[0], list):
            out.update({f"{name}[{at}]": entry for at, entry in enumerate(value)})
        else:
            out[name] = value
    return out


@pytest.mark.parametrize("codec", ["h264", "hevc"])
def test_sets_are_what_the_tool_says(codec: str, h264_mp4: pathlib.Path, hevc_mp4: pathlib.Path, tool: Tool) -> None:
    path = h264_mp4 if codec == "h264" else hevc_mp4
    module: Any = h264 if codec == "h264" else hevc
    config = module.read_avcc(box(path, b"avcC")) if codec == "h264" else module.read_hvcc(box(path, b"hvcC"))
    records = [record for record in (getattr(config, "vps", None), config.sps, config.pps) if record is not None]
    units = ([*config.sequence_sets, *config.picture_sets] if codec == "h264" else
             [unit for array in config.arrays for unit in array.units if array.nal_unit_type in (32, 33, 34)])
    told = tool("inspect", "--json", path)["streams"][0]["parameter_sets"]
    sets = [one for kind in ("vps", "sps", "pps") for one in told.get(kind, [])]
    assert len(sets) == len(records) == len(units)
    for one, record, unit in zip(sets, records, units):
        departures = {departure["element"].split("[")[0] for departure in one.get("library_reads", [])}
        mine = flat(record)
        known = {name: value for name, value in one["elements"].items()
                 if name in mine and isinstance(value, int) and name not in departures}
        assert len(known) > 8 and {name: mine[name] for name in known} == known
        assert (record.write() == unit) == one["read_write_same"]
        again = getattr(module, f"read_{type(record).__name__.lower()}")(record.write())
        assert again.write() == record.write()


def test_what_a_trace_says_of_an_sps(h264_raw: pathlib.Path, hevc_raw: pathlib.Path) -> None:
    from conftest import plain_environment
    for path, read, kind in ((h264_raw, h264.read_sps, 7), (hevc_raw, hevc.read_sps, 33)):
        trace = subprocess.run(["ffmpeg", "-hide_banner", "-i", path, "-c", "copy", "-bsf:v", "trace_headers", "-frames:v",
                                "1", "-f", "null", "-"], capture_output=True, text=True, env=plain_environment()).stderr
        section = trace.split("Sequence Parameter Set", 1)[1].split("Picture Parameter Set")[0]
        told: dict[str, int] = {}
        for line in section.splitlines():
            words = line.split("] ", 1)[-1].split()
            if len(words) >= 4 and words[-2] == "=" and words[-1].lstrip("-").isdigit():
                told.setdefault(words[1], int(words[-1]))
        shift, mask = (0, 0x1F) if kind == 7 else (1, 0x3F)
        unit = next(unit for unit in units_of(path.read_bytes()) if unit[0] >> shift & mask == kind)
        mine = flat(read(unit))
        same = [name for name in told if name in mine and isinstance(mine[name], int)]
        assert len(same) > 15
        skipped = {"bit_depth_luma_minus8", "bit_depth_chroma_minus8", "chroma_format_idc"} if kind == 7 else set()
        assert {name: mine[name] for name in same if name not in skipped} == {
            name: told[name] for name in same if name not in skipped}


def test_configuration_records_come_back_byte_for_byte(h264_mp4: pathlib.Path, hevc_mp4: pathlib.Path) -> None:
    body = box(h264_mp4, b"avcC")
    record = h264.read_avcc(body)
    assert record.write() == body == h264.read_avcc((len(body) + 8).to_bytes(4, "big") + b"avcC" + body).write()
    assert record == h264.read_avcc(record.write()) and record.to_dict()["AVCProfileIndication"] == body[1]
    assert h264.AvcC.of_sets(record.sequence_sets, record.picture_sets).write()[:8] == body[:8]
    assert record.sps is not None and record.sps.pic_width_in_mbs_minus1 == 9
    assert "<table>" in record._repr_html_()
    body = box(hevc_mp4, b"hvcC")
    config = hevc.read_hvcc(body)
    assert config.write() == body and config == hevc.read_hvcc(config.write())
    assert config.head.numOfArrays == len(config.arrays) == body[22]
    assert config.head.general_level_idc == body[12] and config.sps is not None
    assert config.sps.pic_width_in_luma_samples == 160 and config.vps is not None and config.pps is not None
    assert [array.nal_unit_type for array in config.arrays][:3] == [32, 33, 34]


def test_dolby_vision_configuration() -> None:
    # Profile 8, level 9, RPU and base layer, compatible with 1: by the published layout.
    body = bytes((1, 0, 8 << 1 | 9 >> 5, (9 & 0x1F) << 3 | 0b101, 1 << 4)) + bytes(19)
    record = hevc.read_dolby_vision(body)
    assert record.dv_flags & 0x7F == 8 and record.dv_flags >> 7 & 0x3F == 9 and record.dv_compatibility == 1
    assert record.dv_flags >> 13 == 0b101
    assert record.write() == body
    every = bytes(range(1, 25))
    assert hevc.read_dolby_vision(every).write() == every


def test_slice_headers(h264_raw: pathlib.Path) -> None:
    units = units_of(h264_raw.read_bytes())
    sps, pps = h264.read_sps(units[0]), h264.read_pps(units[1])
    before = pps.copy()
    headers = [h264.read_slice_header(unit, sps, pps) for unit in units if unit[0] & 0x1F in (1, 5)]
    assert len(headers) == 12 and pps == before
    assert headers[0].nal_unit_type == 5 and headers[0].slice_type == 7
    assert [header.frame_num for header in headers] == [at % 16 for at in range(12)]
    assert all(header.first_mb_in_slice == 0 for header in headers)
    with pytest.raises(qlnutil.StreamError):
        h264.read_slice_header(units[0], sps, pps)
    with pytest.raises(TypeError):
        h264.read_slice_header(units[-1], pps, sps)  # type: ignore[arg-type]


@pytest.mark.parametrize("codec", ["h264", "hevc"])
def test_frames_and_their_forms(codec: str, h264_raw: pathlib.Path, hevc_raw: pathlib.Path) -> None:
    stream = (h264_raw if codec == "h264" else hevc_raw).read_bytes()
    module: Any = h264 if codec == "h264" else hevc
    units = units_of(stream)
    lengths = b"".join(len(unit).to_bytes(4, "big") + unit for unit in units)
    codes = b"".join(b"\0\0\0\1" + unit for unit in units)
    assert module.to_lengths(codes) == lengths == module.to_lengths(memoryview(codes))
    assert module.to_start_codes(lengths) == codes
    for frame, framing in ((lengths, "lengths"), (codes, h264.Framing.START_CODES), (stream, "start codes")):
        found = module.scan(frame, framing)
        assert [frame[at:at + size] for _, at, size in found.units] == units
        shift, mask = (0, 0x1F) if codec == "h264" else (1, 0x3F)
        assert [unit.type for unit in found.units] == [unit[0] >> shift & mask for unit in units]
        assert found.sps == module.read_sps(next(one for one in units if one[0] >> shift & mask in (7, 33)))
        assert found.pps is not None and found.pps_bytes in units and found.visited > 0
        assert "<table>" in found._repr_html_()
    for wrong in (b"", lengths[:-1], b"\0\0\0\xff" + lengths):
        with pytest.raises(qlnutil.StreamError):
            module.scan(wrong)
        with pytest.raises(qlnutil.StreamError):
            module.to_start_codes(wrong)
    with pytest.raises(qlnutil.StreamError):
        module.to_lengths(b"\1" + codes)
    with pytest.raises(ValueError):
        module.scan(lengths, "no framing")


def test_dolby_vision_units() -> None:
    rpu, sei = bytes((0x7C, 1, 25, 8, 9)), bytes((0x4E, 1, 4, 2))
    frame = b"".join(len(unit).to_bytes(4, "big") + unit for unit in (sei, rpu))
    found = hevc.find_dolby_vision(frame)
    assert found.sei is not None and found.rpu is not None
    assert frame[found.sei[0]:found.sei[0] + found.sei[1]] == sei[1:]
    assert frame[found.rpu[0]:found.rpu[0] + found.rpu[1]] == rpu[1:]
    assert hevc.find_dolby_vision(frame[:5]) == hevc.DolbyVisionUnits(None, None)


def test_aac_headers() -> None:
    config = aac.read_config(b"\x12\x10")  # LC, 44100 Hz, stereo (ISO/IEC 14496-3 clause 1.6.2.1)
    assert (config.audioObjectType, config.samplingFrequency, config.channelConfiguration) == (2, 44100, 2)
    assert config.write() == b"\x12\x10"
    header = aac.read_adts_header(bytes.fromhex("fff15080021ffc0000"))
    assert (header.syncword, header.ID, header.sampling_frequency_index, header.aac_frame_length) == (0xFFF, 0, 4, 16)
    assert aac.read_adts_header(header.write()) == header


def test_what_the_library_says_goes_to_the_log(caplog: pytest.LogCaptureFixture, hevc_raw: pathlib.Path) -> None:
    vps = units_of(hevc_raw.read_bytes())[0]
    with pytest.raises(qlnutil.StreamError):
        hevc.read_vps(vps[:2] + b"\x00" + vps[3:])
    assert any(record.name == "qlnutil" and "Vps Reserved bits" in record.getMessage() for record in caplog.records)
