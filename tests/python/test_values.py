"""Formats, timecodes, transport, commands, clip information, captions in memory: told numbers."""
from __future__ import annotations

import pathlib
import pickle
from fractions import Fraction

import pytest
from conftest import Tool

import qlnutil
from qlnutil import ClipInfo, ClipInfoStore, MediaCommand, SignalFormat, Timecode, TimecodeType, captions, formats, transport
from qlnutil.command import COMMANDS, FLAGS


def test_signal_formats(tool: Tool) -> None:
    hd = SignalFormat.of_raster(1920, 1080, Fraction(30000, 1001), progressive=False)
    assert hd.name == "1920x1080i@29.97" and hd.size == (1920, 1080) and hd.field_size == (1920, 540)
    assert hd.rate == Fraction(30000, 1001) and hd.timecode_type is hd.full_rate_timecode_type
    assert hd.to_dict() == tool("format", "--json", hex(hd))
    assert hd.frames_per_second == pytest.approx(29.97002997) and hd.ms_per_frame == pytest.approx(33.36666667)
    video = hd.video()
    assert video is not None and (video["width"], video["rate"], video["scale"]) == (1920, 30000, 1001)
    unknown = SignalFormat(SignalFormat.UNKNOWN)
    assert unknown.rate is None and unknown.size is None and unknown.video() is None
    with pytest.raises(OverflowError):
        SignalFormat(-1)
    assert SignalFormat.of_raster(1280, 720, 50).full_rate_timecode_type is TimecodeType.TC_50
    assert "1920x1080i" in repr(hd)


def test_rates_and_names() -> None:
    assert formats.normalized_rate(25, 7) == (25, 1)
    assert formats.rate_of_size(5000, 100) is None
    assert formats.aspect_ratio(1920, 1080) == Fraction(16, 9)
    assert formats.size_of_token(10**6) is None and formats.token_of_size(100) is None
    token = formats.token_of_size(1080)
    assert token is not None and formats.size_of_token(token) == 1080
    assert formats.codec_name("avc1") == formats.codec_name(b"avc1") == formats.codec_name(0x61766331) != ""
    assert formats.codec_name("zzz\1") == "" and formats.file_type_name(57) == "Unknown file type"
    assert TimecodeType.of_rate(25) is TimecodeType.PAL and TimecodeType.of_rate(float("nan")) is TimecodeType.NON_DROP_FRAME
    assert TimecodeType.PAL.frames_per_second == 25 and TimecodeType.NON_DROP_FRAME.ms_per_frame == pytest.approx(33.366667)
    assert formats.matrix_of_size(640, 480) == 0
    with pytest.raises(TypeError):
        formats.aspect_ratio("wide", 1)  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        formats.codec_name("toolong")


def test_timecodes() -> None:
    # SMPTE ST 12-1: two numbers are skipped a minute but each tenth.
    assert str(Timecode(1800, TimecodeType.DROP_FRAME)) == "00:01:00;02"
    assert str(Timecode(17982, TimecodeType.DROP_FRAME)) == "00:10:00;00"
    assert Timecode.parse("01:00:00:00", TimecodeType.PAL).frames == 90000
    assert str(Timecode.parse("00:59:59:24", TimecodeType.PAL) + 1) == "01:00:00:00"
    assert int(Timecode(10) - 4) == 6
    assert Timecode(90000, TimecodeType.PAL).converted(TimecodeType.PAL, 25).frames == 90000
    for wrong in ("one hour", "1:2:3:4:5", "", "12:00\x00:00"):
        with pytest.raises(qlnutil.StreamError):
            Timecode.parse(wrong)
    with pytest.raises(OverflowError):
        Timecode(5) - 6
    with pytest.raises(ValueError):
        Timecode(1, 3)  # type: ignore[arg-type]


def test_transport() -> None:
    half = transport.Speed(1, 2)
    assert half.raw == 32760 and float(half) == 0.5 and half == transport.Speed(1001, 2002)
    assert (half * half).raw == 16380 and (half / half).raw == transport.PLAY == int(transport.Speed())
    assert transport.Speed(1, 0).raw == transport.NO_SPEED
    back = transport.Speed(-1)
    assert back.fractionalize() == -1 and back.raw == 65519
    assert transport.Speed.times(1e300).raw == 0x7FFFFFFF and transport.Speed.times(float("nan")).raw == 0
    position = transport.Position(0, -16380)
    assert (position.frame, position.fraction) == (-1, 49140) and float(position) == -0.25
    assert position + transport.Speed(16380) == transport.Position() and position.next_frame == 0
    assert pickle.loads(pickle.dumps(position)) == position and "Position(-1, 49140)" == repr(position)
    counter = transport.Counter()
    counter.set_range(100, 104)
    counter.set_speed(transport.Speed(1, 4))
    counter.go_to(100)
    assert counter.repeat == 4 and counter.step() == 101 and counter.clip_frame == 1
    assert [counter.step() for _ in range(4)] == [102, 103, 100, 101] and counter.step(-1) == 100
    assert counter.step(-2**31) in range(100, 104)
    assert (counter.in_point, counter.out_point, counter.duration) == (100, 104, 4)
    counter.limit_to(500)
    assert counter.frame == 103 and counter.position.frame == 103 and counter.speed == transport.Speed(1, 4)
    counter.go_to_clip(2)
    assert (counter.frame, counter.index) == (102, 0) and "100 to 104" in repr(counter)
    counter.go_to(transport.Position(101, 10))
    assert counter.position.fraction == 10
    with pytest.raises(TypeError):
        transport.Speed(2**31)
    assert transport.channels(0b1010) == [2, 8] and transport.speed_rate(98280) == 0x18000
    assert transport.fourcc_to_upper(0x61766331) == 0x41564331 and transport.fourcc_to_lower(0x41564331) == 0x61766331


def test_commands(tool: Tool, tmp_path: pathlib.Path) -> None:
    play = MediaCommand(Cmd=COMMANDS.index("Play"), Flags=FLAGS["usespeed"] | FLAGS["useposition"], Speed=65520,
                        Position=100).with_clip(b"CLIP0001")
    assert play.word == "Play" and play.clip_id == b"CLIP0001" and play.file_name == b""
    again = MediaCommand.from_text(play.to_xml())
    assert (again.Cmd, again.Speed, again.Position) == (play.Cmd, 65520, 100)
    (tmp_path / "command.xml").write_bytes(play.to_xml())
    assert isinstance(play.to_json(), dict) and play.to_json_text().startswith(b"{")
    assert MediaCommand.from_text(play.to_json_text()).Position == 100
    texts: list[str | bytes] = ["", "<a/>", "{", b"\xff\xfe", "<MediaCmd>" * 3000]
    for wrong in texts:
        try:
            MediaCommand.from_text(wrong)
        except qlnutil.Error as error:
            assert error.what
    with pytest.raises(ValueError):
        play.with_clip(b"123456789")
    for wrong_speed in ("fast", 2**31):
        with pytest.raises(TypeError):
            MediaCommand(Speed=wrong_speed).to_xml()  # type: ignore[arg-type]
    with pytest.raises(ValueError):
        MediaCommand(data=bytes(5000)).to_xml()
    assert "<table>" in play._repr_html_()


def test_clip_information(tmp_path: pathlib.Path, tool: Tool) -> None:
    store = ClipInfoStore(tmp_path / "clip.info")
    with pytest.raises(qlnutil.Error):
        store.read()
    store.write(Title="Dämmerung", scene="12", TimeCode=90000)
    info = store.read()
    assert info.to_dict() == {"Title": "Dämmerung", "Scene": "12", "TimeCode": 90000} and info["title"] == "Dämmerung"
    store.write({"Title": None, "Take": "3"})
    assert store.read() == {"Scene": "12", "Take": "3", "TimeCode": 90000}
    with pytest.raises(KeyError):
        store.write(NoSuchField="x")
    with pytest.raises(TypeError):
        ClipInfo(Title=3)
    with pytest.raises(ValueError):
        store.write(TimeCode=2**32)
    with pytest.raises(ValueError):
        store.write(Title="a\0b")
    assert store.read() == {"Scene": "12", "Take": "3", "TimeCode": 90000}
    assert "<table>" in info._repr_html_()


def test_caption_files(tmp_path: pathlib.Path) -> None:
    scc = b"Scenarist_SCC V1.0\n\n00:00:01:00\t9420 9420 94ad 94ad c8e5 ecec ef80 942f 942f\n\n00:00:03:00\t942c 942c\n"
    track = captions.read(scc)
    assert track.rate == Fraction(30000, 1001) and not track.drop_frame
    assert track.pictures[30][0] == captions.Triplet(True, 0, 0x94, 0x20)
    assert track.services()["CC1"][0][2] == "Hello" and track.text() == track.text("CC1") == "Hello"
    again = captions.read(track.to_scc())
    assert {at: [one for one in list_ if one.valid] for at, list_ in again.pictures.items()} == track.pictures
    by_mcc = captions.read(track.to_mcc())
    assert by_mcc.text() == "Hello"
    for ending in (".mcc", ".scc"):
        track.write(tmp_path / f"out{ending}")
        assert captions.read(tmp_path / f"out{ending}").text() == "Hello"
    assert sorted(path.name for path in tmp_path.iterdir()) == ["out.mcc", "out.scc"]
    with pytest.raises(ValueError):
        track.write(tmp_path / "out.txt")
    with pytest.raises(qlnutil.Error) as failure:
        captions.read(b"no captions")
    assert "neither" in failure.value.what
    one = captions.Triplet(True, 0, 0x80, 0x80)
    for wrong in (captions.CaptionTrack(Fraction(17), pictures={0: [one]}),
                  captions.CaptionTrack(Fraction(25), pictures={0: [one] * 32}),
                  captions.CaptionTrack(Fraction(25), pictures={-1: [one]}),
                  captions.CaptionTrack(Fraction(25), pictures={2**40: [one]}),
                  captions.CaptionTrack(Fraction(25), drop_frame=True, pictures={0: [one]})):
        with pytest.raises(qlnutil.Error):
            wrong.to_mcc()
    with pytest.raises(ValueError):
        captions.CaptionTrack(Fraction(25), pictures={0: [captions.Triplet(True, 4, 0, 0)]}).to_mcc()
    with pytest.raises(FileNotFoundError):
        captions.read(tmp_path / "missing.scc")
    assert "Hello" in track._repr_html_()
