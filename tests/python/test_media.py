"""Files and streams: against the tool's JSON, with callbacks that call the work off, and misuse."""
from __future__ import annotations

import json
import os
import pathlib
import signal
import subprocess
import sys
import threading
from collections.abc import Callable
from fractions import Fraction
from typing import Any

import pytest
from conftest import Tool, box, units_of

import qlnutil
from qlnutil import captions, h264, hevc, media


def test_inspect_is_the_documented_form(h264_mp4: pathlib.Path, tool: Tool) -> None:
    report = media.inspect(h264_mp4, units=True)
    assert report == tool("inspect", "--json", "--units", h264_mp4) and isinstance(report, dict)
    assert "streams" not in media.inspect(os.fsencode(h264_mp4), details=False)
    assert "h264" in report._repr_html_().lower()
    with pytest.raises(ValueError):
        media.inspect(h264_mp4, frames=-1)


def test_failures_have_their_parts(tmp_path: pathlib.Path) -> None:
    missing = tmp_path / "missing.mp4"
    calls: list[Callable[[pathlib.Path], Any]] = [media.inspect, media.check, media.captions]
    for call in calls:
        with pytest.raises(qlnutil.Error) as failure:
            call(missing)
        assert failure.value.path == str(missing) and failure.value.what
        assert str(failure.value).startswith(str(missing))
    (tmp_path / "empty.mp4").touch()
    with pytest.raises(qlnutil.NotApplicable):
        media.inspect(tmp_path / "empty.mp4")
    odd = os.fsencode(tmp_path) + b"/\xff.mp4"
    with pytest.raises(qlnutil.Error):
        media.check(odd)
    for wrong in (None, 3, "a\0b"):
        with pytest.raises((TypeError, ValueError)):
            media.check(wrong)  # type: ignore[arg-type]
    assert issubclass(qlnutil.Cancelled, qlnutil.Error)


def test_check_and_patch(h264_mp4: pathlib.Path, tmp_path: pathlib.Path, tool: Tool) -> None:
    assert not media.check(h264_mp4).worthy
    out = tmp_path / "out.mp4"
    steps: list[media.Progress] = []
    result = media.patch(h264_mp4, out, colour=(9, 16, 9), hdr=media.Hdr("p3", (1000, 400)), timecode="01:00:00:00",
                         verify=True, progress=lambda step: steps.append(step))
    assert result.lines and str(result) and "<table>" in result._repr_html_()
    assert steps and steps[-1].finished and steps[-1].total > 0
    report = media.inspect(out)
    video = report["summary"]["streams"][0]
    assert video["colour_primaries"] == "bt2020" or "2020" in str(video["colour_primaries"])
    assert "01:00:00:00" in json.dumps(report["summary"])
    sps = h264.read_avcc(box(out, b"avcC")).sps
    assert sps is not None and (sps.colour_primaries, sps.transfer_characteristics) == (9, 16)
    # Only the sequence sets say so: the box does not.
    broken = tmp_path / "broken.mp4"
    data = bytearray(out.read_bytes())
    at = data.index(b"colrnclx")
    data[at + 8:at + 10] = (1).to_bytes(2, "big")
    broken.write_bytes(data)
    findings = media.check(broken)
    assert findings.worthy and findings[0].kind == "colour" and findings[0].stream == 0
    told = tool("check", "--json", broken, status=3)["findings"]
    assert [{"what" if key == "kind" else key: value for key, value in one.to_dict().items()} for one in findings] == told
    assert "colour" in findings._repr_html_() and "colour" in str(findings[0])
    assert media.patch(h264_mp4, dry_run=True, changes=media.Changes(colour="bt709")).lines
    assert media.recover(out) == "nothing"


def test_patch_refuses_and_leaves_nothing(h264_mp4: pathlib.Path, tmp_path: pathlib.Path) -> None:
    out = tmp_path / "out.mp4"
    with pytest.raises(qlnutil.Error):
        media.patch(h264_mp4, out, colour="ultraviolet")
    with pytest.raises(TypeError, match="flavour"):
        media.patch(h264_mp4, out, flavour="vanilla")
    with pytest.raises(TypeError):
        media.patch(h264_mp4, out, timecode=3)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        media.patch(h264_mp4, out, hdr=3)  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        media.patch(h264_mp4, out)
    with pytest.raises(ValueError):
        media.patch(h264_mp4, colour="bt709")
    with pytest.raises(qlnutil.Cancelled):
        media.patch(h264_mp4, out, colour="bt709", progress=lambda step: False)
    with pytest.raises(ZeroDivisionError):
        media.patch(h264_mp4, out, colour="bt709", progress=lambda step: bool(1 // 0))
    with pytest.raises(KeyboardInterrupt):
        def interrupted(step: media.Progress) -> bool:
            raise KeyboardInterrupt
        media.check(h264_mp4, progress=interrupted)
    with pytest.raises(TypeError):
        media.check(h264_mp4, progress="no function")  # type: ignore[arg-type]
    assert list(tmp_path.iterdir()) == []


def test_a_signal_ends_the_work(h264_mp4: pathlib.Path) -> None:
    def interrupt(step: media.Progress) -> None:
        signal.raise_signal(signal.SIGINT)
    with pytest.raises(KeyboardInterrupt):
        media.check(h264_mp4, progress=interrupt)


def test_the_lock_is_free_meanwhile(h264_mp4: pathlib.Path) -> None:
    failures: list[BaseException] = []
    expected = media.inspect(h264_mp4)

    def work() -> None:
        try:
            for _ in range(3):
                assert media.inspect(h264_mp4) == expected and not media.check(h264_mp4).worthy
        except BaseException as failure:
            failures.append(failure)
    threads = [threading.Thread(target=work) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures


def test_captions_into_a_file_and_out(h264_mp4: pathlib.Path, tmp_path: pathlib.Path) -> None:
    with pytest.raises(qlnutil.NotApplicable):
        media.captions(h264_mp4)
    words = b"9420 9420 94ad 94ad c8e5 ecec ef80 942f 942f"
    (tmp_path / "in.scc").write_bytes(b"Scenarist_SCC V1.0\n\n00:00:00:00\t" + words + b"\n")
    out = tmp_path / "out.mp4"
    media.patch(h264_mp4, out, captions=tmp_path / "in.scc", captions_offset="00:00:00:00")
    found = media.captions(out)
    assert found.pictures == 12 and found.captioned == 12 and found.services[0].name == "CC1"
    assert [service.name for service in found] == ["CC1"] and "<table>" in found._repr_html_()
    track = captions.of_file(out)
    assert track.rate == 25 and any(one[2:] == (0xC8, 0xE5) for list_ in track.pictures.values() for one in list_)
    media.extract_captions(out, tmp_path / "out.mcc")
    assert captions.read(tmp_path / "out.mcc").pictures == track.pictures
    with pytest.raises(ValueError):
        media.patch(h264_mp4, out, colour="bt709", captions_offset="00:00:00:00")


def pictures_of(stream: bytes) -> list[bytes]:
    """Access units with lengths, of streams with a slice a picture."""
    out, begun = [], b""
    for unit in units_of(stream):
        begun += len(unit).to_bytes(4, "big") + unit
        if unit[0] & 0x1F in (1, 5):
            out.append(begun)
            begun = b""
    return out


def test_the_stream_editor(h264_raw: pathlib.Path) -> None:
    stream = media.StreamDescription(codec="h264", length_bytes=4, time_base=Fraction(1, 25), average_rate=Fraction(25))
    pictures = pictures_of(h264_raw.read_bytes())
    survey = media.StreamSurvey(stream)
    with pytest.raises(ValueError):
        survey.pictures
    for at, data in enumerate(pictures):
        survey.add(memoryview(data), at, at, at == 0)
    survey.finish()
    assert survey.pictures == 12 and survey.captioned == 0 and survey.steady and survey.pictures_per_second == 25
    with pytest.raises(ValueError):
        survey.add(pictures[0])
    asked: list[int] = []

    def triplets(place: int) -> list[captions.Triplet]:
        asked.append(place)
        return [captions.Triplet(True, 0, 0x94, 0x20)]
    editor = media.StreamEditor(stream, colour="bt709", timecode="10:00:00:00", survey=survey, captions=triplets)
    edited = list(editor.edit((data, at, at, at == 0) for at, data in enumerate(pictures)))
    assert [unit.pts for unit in edited] == list(range(12)) and all(unit.changed for unit in edited)
    assert asked == list(range(12)) and editor.counts["captions"] == 12 and editor.counts["timecodes"] == 12
    assert editor.counts["sequence_sets"] == 1 and editor.pull() is None
    sps = next(edited[0].data[at:at + size] for kind, at, size in h264.scan(edited[0].data).units if kind == 7)
    assert h264.read_sps(sps).colour_primaries == 1
    with pytest.raises(ValueError):
        editor.push(b"x")
    plain = media.StreamEditor(stream)
    assert [unit.data for unit in plain.edit((data,) for data in pictures)] == pictures


def test_the_editor_refuses_misuse(h264_raw: pathlib.Path) -> None:
    stream = media.StreamDescription(codec="h264", length_bytes=4)
    data = pictures_of(h264_raw.read_bytes())[0]
    with pytest.raises(ValueError):
        media.StreamEditor(stream, interlaced=True)
    with pytest.raises(ValueError):
        media.StreamEditor(media.StreamDescription(codec="av1"))
    with pytest.raises(ValueError):
        media.StreamEditor(media.StreamDescription(codec="h264", length_bytes=3))
    with pytest.raises(ValueError):
        media.StreamEditor(media.StreamDescription(codec="h264", time_base=Fraction(0)))
    with pytest.raises(qlnutil.Error):
        media.StreamEditor(stream, timecode="noon", where="clip.mp4: stream 0")
    editor = media.StreamEditor(stream, timecode="10:00:00:00", rate=25)
    with pytest.raises(ValueError):
        editor.push(data, pts=2**63 - 1)
    with pytest.raises(TypeError):
        editor.push(data, pts=2**70)
    survey = media.StreamSurvey(stream)
    survey.add(data)
    survey.finish()
    for wrong in (lambda place: [(True, 9, 0, 0)], lambda place: 3, lambda place: 1 // 0, lambda place: [("x",)]):
        editor = media.StreamEditor(stream, survey=survey, captions=wrong, rate=25)  # type: ignore[arg-type]
        with pytest.raises((ValueError, TypeError, ZeroDivisionError, qlnutil.Error)):
            editor.push(data)
            editor.finish()
            while editor.pull():
                pass
    again: list[BaseException] = []

    def inside(place: int) -> list[captions.Triplet]:
        try:
            editor.push(data)
        except BaseException as failure:
            again.append(failure)
        return []
    editor = media.StreamEditor(stream, survey=survey, captions=inside, rate=25)
    try:
        editor.push(data)
        editor.finish()
    except qlnutil.Error:
        pass
    assert not again or isinstance(again[0], RuntimeError)
