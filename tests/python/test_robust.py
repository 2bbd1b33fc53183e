"""Whatever comes in: seeds of the fuzzers through every reader, flat memory, threads."""
from __future__ import annotations

import gc
import os
import pathlib
import resource
import sys
import threading
from collections.abc import Callable
from typing import Any

import pytest
from conftest import units_of

import qlnutil
from qlnutil import MediaCommand, Timecode, aac, captions, h264, hevc, media

CORPUS = pathlib.Path(os.environ["QLN_FUZZ_CORPUS"])
SANITIZED = "QLN_SANITIZED" in os.environ
SPS = h264.Sps(profile_idc=66, chroma_format_idc=1, frame_mbs_only_flag=1)

READERS: list[Callable[[bytes], Any]] = [
    h264.read_sps, h264.read_pps, h264.read_avcc, h264.scan, hevc.read_vps, hevc.read_sps, hevc.read_pps, hevc.read_hvcc,
    hevc.scan, hevc.read_dolby_vision, hevc.find_dolby_vision, aac.read_config, aac.read_adts_header, h264.to_lengths,
    h264.to_start_codes, captions.read, MediaCommand.from_text,
    lambda data: h264.scan(data, "start codes"), lambda data: hevc.scan(data, "start codes"),
    lambda data: h264.read_slice_header(data, SPS, h264.Pps()),
    lambda data: Timecode.parse(data.decode("latin-1")),
]


def read_all(data: bytes) -> None:
    for read in READERS:
        try:
            found = read(data)
        except qlnutil.Error:
            continue
        if isinstance(found, qlnutil.Record):
            assert type(found)(**found.to_dict()) == found
            if hasattr(found, "write"):
                try:
                    found.write()
                except qlnutil.StreamError:
                    pass


def seeds() -> list[bytes]:
    return [path.read_bytes() for path in sorted(CORPUS.rglob("*")) if path.is_file()]


def test_seeds_of_the_fuzzers_through_every_reader(tmp_path: pathlib.Path) -> None:
    found = [data for data in seeds() if len(data) < 20000]
    assert len(found) > 100
    for data in found[::3] if SANITIZED else found:
        read_all(data)
        read_all(b"\x67" + data)
        read_all(b"\x40\x01" + data)


@pytest.mark.parametrize("codec", ["h264", "hevc"])
def test_seeds_through_the_editor(codec: str) -> None:
    every = [data for name in ("stream_editor", "media_units", "h264_frame_scan", "hevc_frame_scan")
             for data in [path.read_bytes() for path in sorted((CORPUS / name).glob("*"))]]
    for data in every:
        for private in (b"", data[:40]):
            try:
                stream = media.StreamDescription(codec=codec, private_data=private, length_bytes=0)
                editor = media.StreamEditor(stream, colour="bt709", timecode="01:00:00:00", rate=25, remove="filler")
                list(editor.edit([(data, 0, 0, True), (data[1:],)]))
            except qlnutil.Error:
                pass


def test_seeds_as_files(tmp_path: pathlib.Path) -> None:
    for at, name in enumerate(("mp4_carry", "ts_carry")):
        for data in [path.read_bytes() for path in sorted((CORPUS / name).glob("*"))][:12]:
            path = tmp_path / f"seed.{'mp4' if at == 0 else 'ts'}"
            path.write_bytes(data)
            works: list[Callable[[pathlib.Path], Any]] = [
                media.inspect, media.check, lambda path: media.patch(path, tmp_path / "out", colour="bt709")]
            for work in works:
                try:
                    work(path)
                except qlnutil.Error as error:
                    assert error.what


def resident() -> int:
    with open("/proc/self/statm", encoding="ascii") as file:
        return int(file.read().split()[1]) * resource.getpagesize()


def test_memory_and_references_are_flat(h264_raw: pathlib.Path, hevc_raw: pathlib.Path) -> None:
    unit = units_of(h264_raw.read_bytes())[0]
    hevc_sps = units_of(hevc_raw.read_bytes())[1]
    frame = b"".join(len(one).to_bytes(4, "big") + one for one in units_of(h264_raw.read_bytes())[:4])
    given = [unit, hevc_sps, frame, media, h264.Sps, None, 25]

    def once() -> None:
        sps = h264.read_sps(unit)
        sps.nal_hrd.schedule[0].cbr_flag = sps.profile_idc
        sps.write()
        with_failure = False
        try:
            h264.read_pps(unit)
        except qlnutil.StreamError:
            with_failure = True
        assert with_failure
        h264.to_start_codes(frame)

    calls = 2000 if SANITIZED else 20000  # of five calls each
    for _ in range(calls // 10):
        once()
    gc.collect()
    before, counts, blocks = resident(), [sys.getrefcount(one) for one in given[:5]], sys.getallocatedblocks()
    for _ in range(calls):
        once()
    gc.collect()
    assert [sys.getrefcount(one) for one in given[:5]] == counts
    assert abs(sys.getallocatedblocks() - blocks) < 500
    if not SANITIZED:
        assert resident() - before < 4 << 20
    for _ in range(200):
        hevc.read_sps(hevc_sps).to_dict()
        hevc.scan(frame)


def test_eight_threads_at_once(h264_raw: pathlib.Path) -> None:
    units = units_of(h264_raw.read_bytes())
    shared = h264.read_sps(units[0])
    expected = shared.to_dict()
    failures: list[BaseException] = []

    def work() -> None:
        try:
            for _ in range(20 if SANITIZED else 150):
                assert h264.read_sps(units[0]) == shared and shared.to_dict() == expected
                shared.profile_idc = shared.profile_idc
                assert shared.write() == units[0]
        except BaseException as failure:
            failures.append(failure)
    threads = [threading.Thread(target=work) for _ in range(8)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures
