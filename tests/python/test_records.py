"""Records: attributes, dicts, equality, pickles, and what they refuse."""
from __future__ import annotations

import array
import copy
import mmap
import pathlib
import pickle
import re
from typing import Any

import pytest
from conftest import ROOT, box, units_of

import qlnutil
from qlnutil import aac, h264, hevc

RECORDS = [h264.HrdSchedule, h264.Hrd, h264.Sps, h264.Pps, h264.SliceHeader, hevc.ProfileTierLevel, hevc.Vps,
           hevc.ShortTermRps, hevc.LongTermPicture, hevc.Sps, hevc.Pps, hevc.ConfigHead, hevc.DolbyVisionConfig,
           aac.AacConfig, aac.AdtsHeader]


@pytest.mark.parametrize("kind", RECORDS, ids=lambda kind: f"{kind.__module__}.{kind.__name__}")
def test_every_record_goes_into_a_dict_and_back(kind: type[qlnutil.Record]) -> None:
    def raised(value: object, by: int) -> object:
        if isinstance(value, dict):
            return {key: raised(one, by + at) for at, (key, one) in enumerate(value.items())}
        if isinstance(value, list):
            return [raised(one, by + at) for at, one in enumerate(value)]
        return by % 100

    values = raised(kind().to_dict(), 3)
    assert isinstance(values, dict)
    record = kind(**values)
    assert record.to_dict() == values
    assert record == kind(**record.to_dict()) and record != kind()
    assert pickle.loads(pickle.dumps(record)) == record
    assert copy.deepcopy(record) == record == copy.copy(record)
    assert kind.__name__ in repr(record) and "<table>" in record._repr_html_()
    for name in values:
        setattr(record, name, getattr(record, name))
    assert record.to_dict() == values
    with pytest.raises(TypeError):
        hash(record)


def test_members_are_those_of_the_headers() -> None:
    header = (ROOT / "support/qlnutil/qlnh264_records.h").read_text()
    body = re.search(r"typedef struct H264SpsRecord \{(.*?)\} H264SpsRecord", header, re.S)
    assert body is not None
    names = re.findall(r"^  \w+ (\w+)(?:\[\w+\])*;", body[1], re.M)
    assert list(h264.Sps().to_dict()) == names and len(names) > 70
    assert h264.Sps.profile_idc.__doc__ == "8 bits; profile of Annex A"


def test_records_inside_are_views() -> None:
    sps = h264.Sps()
    sps.nal_hrd.schedule[2].cbr_flag = 1
    assert sps.nal_hrd.schedule[2].cbr_flag == 1
    assert sps.to_dict()["nal_hrd"]["schedule"][2]["cbr_flag"] == 1
    hrd = sps.nal_hrd
    del sps
    assert hrd.schedule[2].cbr_flag == 1
    other = h264.Sps(vcl_hrd=hrd)
    hrd.schedule[2].cbr_flag = 7
    assert other.vcl_hrd.schedule[2].cbr_flag == 1
    set_ = hevc.Sps(st_ref_pic_set=[{"num_negative_pics": at} for at in range(64)])
    assert [one.num_negative_pics for one in set_.st_ref_pic_set] == list(range(64))


def test_values_are_checked() -> None:
    sps = h264.Sps(profile_idc=100)
    for wrong in (-1, 2**32, 2**70):
        with pytest.raises(OverflowError, match="profile_idc"):
            sps.profile_idc = wrong
    for nonsense in ("100", None, 1.5, [1]):
        with pytest.raises(TypeError):
            sps.profile_idc = nonsense  # type: ignore[assignment]
    with pytest.raises(ValueError, match="12 entries"):
        sps.seq_scaling_list_present_flag = (1, 2)
    lists = sps.ScalingList4x4
    with pytest.raises(OverflowError):
        sps.ScalingList4x4 = ((2**31,) * 16,) * 6
    with pytest.raises(OverflowError):
        sps.ScalingList4x4 = ((1,) * 16,) * 5 + ((1,) * 15 + (-2**40,),)
    assert sps.ScalingList4x4 == lists, "all of a member, or nothing"
    with pytest.raises(AttributeError):
        sps.no_such = 1  # type: ignore[attr-defined]
    with pytest.raises(AttributeError):
        del sps.profile_idc
    with pytest.raises(AttributeError, match="no_such"):
        h264.Sps(no_such=1)  # type: ignore[call-arg]
    with pytest.raises(TypeError):
        h264.Sps(1)  # type: ignore[misc]
    with pytest.raises(TypeError):
        qlnutil.Record()
    with pytest.raises(TypeError):
        sps.nal_hrd = h264.HrdSchedule()  # type: ignore[assignment]
    assert sps.profile_idc == 100
    assert hevc.ConfigHead(general_constraint_indicator_flags=2**64 - 1).general_constraint_indicator_flags == 2**64 - 1


def test_writers_put_out_any_record_or_refuse() -> None:
    for kind in RECORDS:
        if not hasattr(kind, "write"):
            continue
        for word in (0, 1, 255, 2**31 - 1, 2**31, 2**32 - 1):
            record = kind()
            for name, value in record.to_dict().items():
                if isinstance(value, int):
                    try:
                        setattr(record, name, word)
                    except OverflowError:
                        setattr(record, name, word & 0xFF)
            before = record.to_dict()
            try:
                assert isinstance(record.write(), bytes)
            except qlnutil.StreamError as error:
                assert error.what
            assert record.to_dict() == before, "a record stays as it is"


def test_any_contiguous_buffer(h264_raw: pathlib.Path) -> None:
    unit = units_of(h264_raw.read_bytes())[0]
    sps = h264.read_sps(unit)
    forms: list[Any] = [bytearray(unit), memoryview(unit), array.array("B", unit), memoryview(b"xx" + unit)[2:],
             b"\0\0\1" + unit, b"\0\0\0\1" + unit]
    assert all(h264.read_sps(form) == sps for form in forms)
    with mmap.mmap(-1, len(unit)) as shared:
        shared[:] = unit
        assert h264.read_sps(shared) == sps
    with pytest.raises(ValueError):
        h264.read_sps(shared)
    grown = bytearray(unit)
    h264.read_sps(grown)
    grown.extend(b"x" * 100)  # nothing holds it any more
    with pytest.raises(BufferError):
        h264.read_sps(memoryview(unit + unit)[::2])
    for wrong in (None, 1, "text", [1, 2]):
        with pytest.raises(TypeError):
            h264.read_sps(wrong)  # type: ignore[arg-type]


def test_short_buffers_are_refused(h264_mp4: pathlib.Path, hevc_mp4: pathlib.Path, h264_raw: pathlib.Path,
                                   hevc_raw: pathlib.Path) -> None:
    sps, pps = units_of(h264_raw.read_bytes())[:2]
    for size in range(len(sps) - 1):
        with pytest.raises(qlnutil.StreamError):
            h264.read_sps(sps[:size])
    with pytest.raises(qlnutil.StreamError):
        h264.read_pps(sps)
    with pytest.raises(qlnutil.StreamError):
        h264.read_pps(pps[:1])
    vps, hevc_sps = units_of(hevc_raw.read_bytes())[:2]
    for size in range(len(hevc_sps) - 2):
        with pytest.raises(qlnutil.StreamError):
            hevc.read_sps(hevc_sps[:size])
    with pytest.raises(qlnutil.StreamError):
        hevc.read_vps(hevc_sps)
    for path, kind, read in ((h264_mp4, b"avcC", h264.read_avcc), (hevc_mp4, b"hvcC", hevc.read_hvcc)):
        body = box(path, kind)
        for size in range(len(body) - 4):
            try:
                read(body[:size])
            except qlnutil.StreamError:
                continue
            assert size > 8, "a head alone is no record"
    with pytest.raises(qlnutil.StreamError):
        hevc.read_dolby_vision(bytes(23))
    with pytest.raises(qlnutil.StreamError):
        aac.read_adts_header(b"\xff\xf1")


def test_help_says_what_the_headers_say() -> None:
    import pydoc
    text = pydoc.plain(pydoc.render_doc(h264.Sps))
    assert "profile of Annex A" in text and "width in macroblocks of 16 samples, less 1" in text
    for name in h264.__all__ + hevc.__all__:
        thing = getattr(h264, name, None) or getattr(hevc, name)
        assert thing.__doc__, name
