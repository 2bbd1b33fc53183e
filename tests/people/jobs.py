"""What new users in broadcast do on their first day, each job with nothing but the command line, and what other tools
make of the result."""
import csv
import io
import json
import os
import re
import shutil

JOBS = []


def job(function):
    JOBS.append(function)
    return function


def expect(what, found, wanted):
    if found != wanted:
        raise SystemExit(f"{what}: {found!r}, wanted {wanted!r}")


def expect_in(what, piece, text):
    if piece not in text:
        raise SystemExit(f"{what}: {piece!r} is not in\n{text}")


def probe(desk, path, *what):
    return json.loads(desk.run("ffprobe", "-v", "error", "-of", "json", *what, path))


def stream_of(desk, path):
    return probe(desk, path, "-show_streams", "-select_streams", "v:0")["streams"][0]


def media_info(desk, path, kind, field):
    return desk.run("mediainfo", f"--Inform={kind};%{field}%", path).strip()


@job
def what_is_in_this_file(desk):
    """Size, codec and profile of a file, as text and for a script."""
    for terminal in desk.terminals:
        status, lines = terminal.run_narrow("qlnmedia inspect clip.mov")
        expect("inspect", status, 0)
        expect_in("inspect", "160", "\n".join(lines))
        expect("lines for two streams", len(lines) <= 25, True)
    told = json.loads(desk.shell("qlnmedia inspect clip.mov --json | jq '.streams[0]'"))
    is_so = stream_of(desk, "clip.mov")
    expect("size and codec", (told["width"], told["height"], told["codec"]),
           (is_so["width"], is_so["height"], is_so["codec_name"]))


@job
def is_its_hdr_right(desk):
    """A file is said to be HDR10 and looks flat: why, and is it well once it is put right?"""
    status, lines = desk.terminals[0].run("qlnmedia check flat.mp4")
    expect("check of the flat file", status, 3)
    expect_in("check", "a mastering display, and the transfer is BT.709", " ".join(lines))
    desk.shell("qlnmedia patch flat.mp4 hdr10.mp4 --colour bt2020-pq --hdr bt2020 --light-level 1000,400")
    expect("check of the right one", desk.shell("qlnmedia check hdr10.mp4"), "nothing found\n")
    expect_in("mediainfo", "HDR10", media_info(desk, "hdr10.mp4", "Video", "HDR_Format_Compatibility"))
    expect("transfer", stream_of(desk, "hdr10.mp4")["color_transfer"], "smpte2084")
    # Light that the display does not have.
    desk.shell("qlnmedia patch hdr10.mp4 bright.mp4 --light-level 4000,400")
    expect_in("check", "above the mastering display's peak of 1000 cd/m2", desk.shell("qlnmedia check bright.mp4", 3))


@job
def which_names_are_there(desk):
    """The names of colours and displays, and what they stand for."""
    for terminal in desk.terminals:
        _, colours = terminal.run_narrow("qlnmedia patch --colour list")
        expect_in("colours", "9:16:9", "\n".join(colours))
        _, displays = terminal.run_narrow("qlnmedia patch --hdr list")
        expect_in("displays", "0.708,0.292", "\n".join(displays))
    expect_in("refusal", "average above its maximum", desk.shell(
        "qlnmedia patch clip.mov no.mov --light-level 400,1000", 1))
    expect("no file", os.path.exists("no.mov"), False)


@job
def the_colour_tags_are_wrong(desk):
    """Rec. 709 material that says nothing of its colour, in MP4 and in MKV."""
    desk.shell("qlnmedia patch --verify clip.mp4 tagged.mp4 --colour bt709 --limited-range")
    stream = stream_of(desk, "tagged.mp4")
    expect("colour", [stream[key] for key in ("color_primaries", "color_transfer", "color_space")], ["bt709"] * 3)
    expect("mediainfo", media_info(desk, "tagged.mp4", "Video", "colour_primaries"), "BT.709")
    desk.shell("ffmpeg -v error -y -i clip.mp4 -c copy clip.mkv")
    desk.shell("qlnmedia patch clip.mkv tagged.mkv --colour bt709 --limited-range")
    expect_in("mkvinfo", "Color matrix coefficients: 1", desk.run("mkvinfo", "tagged.mkv").replace("Colour", "Color"))


@job
def put_a_timecode(desk):
    """The tape began at ten o'clock, drop-frame: in the pictures, and in the track that editing systems read."""
    desk.shell("qlnmedia patch clip.mov timed.mov --timecode '10:00:00;00' --timecode-track --verify")
    expect("track", probe(desk, "timed.mov", "-show_streams", "-select_streams", "d")["streams"][0]["tags"]["timecode"],
           "10:00:00;00")
    expect("mediainfo", media_info(desk, "timed.mov", "Other", "TimeCode_FirstFrame"), "10:00:00;00")
    codes = [code["value"] for frame in probe(desk, "timed.mov", "-show_frames", "-select_streams", "v")["frames"]
             for data in frame.get("side_data_list", []) for code in data.get("timecodes", [])]
    expect("timecodes in pictures", (codes[0], len(codes)), ("10:00:00:00", 30))
    expect("check", desk.shell("qlnmedia check timed.mov"), "nothing found\n")


@job
def put_captions_in_and_take_them_out(desk):
    """A .scc file goes into the pictures; what players show, and what comes out again."""
    desk.shell("qlnmedia patch clip.mov captioned.mov --captions words.scc")
    expect_in("a player", "HELLO", desk.shell(
        "ffmpeg -v error -f lavfi -i 'movie=captioned.mov[out+subcc]' -map 0:s -f srt -"))
    _, lines = desk.terminals[0].run("qlnmedia captions captioned.mov --service cc1")
    expect_in("a terminal", "HELLO", "\n".join(lines))
    desk.shell("qlnmedia captions captioned.mov -o out.scc --start '01:00:00;00'")
    with open("out.scc", encoding="ascii") as file:
        expect_in("labels", "\n01:00:00;", file.read())
    text = desk.shell("qlnmedia captions captioned.mov -o - | cat")
    expect("subtitles", re.findall(r"^\d\d:\d\d:\d\d,\d{3} --> ", text, re.M) != [], True)
    expect("no file of that name", os.path.exists("-"), False)


@job
def do_not_lose_my_file(desk):
    """An output that is there already, at a terminal and in a script."""
    shutil.copy("clip.mov", "mine.mov")
    with open("mine.mov", "rb") as file:
        before = file.read()
    for terminal, answer in zip(desk.terminals, ("n", "")):
        terminal.start("qlnmedia patch clip.mov mine.mov --colour bt709")
        terminal.wait_for(lambda: any("replace it?" in line for line in terminal.lines()))
        terminal.type(answer)
        expect("the answer no", terminal.finish()[0], 1)
    expect_in("a script", "mine.mov: exists; --force replaces it", desk.shell(
        "qlnmedia patch clip.mov mine.mov --colour bt709", 1))
    with open("mine.mov", "rb") as file:
        expect("the file", file.read() == before, True)
    terminal = desk.terminals[0]
    terminal.start("qlnmedia patch clip.mov mine.mov --colour bt709")
    terminal.wait_for(lambda: any("replace it?" in line for line in terminal.lines()))
    terminal.type("y")
    expect("the answer yes", terminal.finish()[0], 0)
    expect("colour", stream_of(desk, "mine.mov")["color_space"], "bt709")
    desk.shell("qlnmedia patch clip.mov mine.mov --colour bt601-625 --force")
    expect("colour", stream_of(desk, "mine.mov")["color_primaries"], "bt470bg")


@job
def what_would_it_do(desk):
    """A look before the leap: no output is named and none is made."""
    before = sorted(os.listdir("."))
    expect_in("dry run", "would: stream 0:", desk.shell("qlnmedia patch clip.mp4 --dry-run --colour bt2020-hlg"))
    expect("files", sorted(os.listdir(".")), before)


@job
def change_it_where_it_stands(desk):
    """A large file on a full disk."""
    shutil.copy("clip.mov", "place.mov")
    desk.shell("qlnmedia patch --in-place place.mov --colour bt709")
    expect("colour", stream_of(desk, "place.mov")["color_space"], "bt709")
    expect("recover", desk.shell("qlnmedia recover place.mov"), "nothing to recover\n")


@job
def which_format_is_that(desk):
    """Raster and rate into the name that switchers show, and a counter that is jogged."""
    name = desk.shell("qlnmedia format 1920 1080 30000/1001 --interlaced --json | jq -r '.name, .rate.numerator'")
    expect("format", name.split("\n")[1], "30000")
    expect_in("format", "1920x1080i@29.97", name)


    # Where the transport stands after some steps.
    steps = desk.shell("qlnmedia transport --in 100 --out 110 --speed 1 --steps 2 --start 109 --json | "
                       "jq -c '[.steps[].position]'")
    expect("positions", steps, "[109,100,101]\n")
    expect_in("outside", "outside of the range", desk.shell(
        "qlnmedia transport --in 100 --out 110 --speed 1 --steps 0 --start 200"))


@job
def send_a_command(desk):
    """A transport command for a controller that takes JSON, and one that takes XML."""
    desk.shell("qlnmedia command play --channel 1 --position 01:00:00:00 --tctype pal >play.xml")
    desk.run("xmllint", "--noout", "play.xml")
    expect("jq", desk.shell("qlnmedia command convert play.xml --strict-json | jq -r .MediaCmd.Position.TcString"),
           "01:00:00:00\n")
    expect_in("flags", "there are deferred,", desk.shell("qlnmedia command play --flag nope", 2))


@job
def keep_a_title(desk):
    """Clip information: where it is kept, set, listed, and taken to another machine."""
    place = desk.shell("qlnmedia metadata where").strip()
    expect("listing", desk.shell("qlnmedia metadata list"), "")
    expect("nothing is made", os.path.exists(place), False)
    desk.shell("qlnmedia metadata set Title 'Evening news'; qlnmedia metadata set FileSize 0x10")
    expect("it is made there", os.path.exists(place), True)
    expect("jq", desk.shell("qlnmedia metadata export - | jq -c '[.Title, .FileSize]'"), '["Evening news",16]\n')
    desk.shell("qlnmedia metadata export - | qlnmedia metadata import - --file other.xml")
    expect("the other", desk.shell("qlnmedia metadata get title --file other.xml"), "Evening news\n")


@job
def is_the_delivery_right(desk):
    """A folder of files into a table, and the same for programs."""
    os.makedirs("delivery/second")
    shutil.copy("clip.mov", "delivery")
    shutil.copy("flat.mp4", "delivery/second")
    with open("delivery/empty.mp4", "w", encoding="ascii"):
        pass
    rows = list(csv.DictReader(io.StringIO(desk.shell("qlnmedia check --csv --recursive delivery 2>/dev/null", 3))))
    expect("status of each file", {row["file"]: row["status"] for row in rows},
           {"delivery/clip.mov": "0", "delivery/empty.mp4": "4", "delivery/second/flat.mp4": "3"})
    expect("findings", [row["what"] for row in rows if row["status"] == "3"], ["hdr"])
    names = desk.shell("qlnmedia inspect --json clip.mov clip.mp4 | jq -r .file")
    expect("JSON lines", names, "clip.mov\nclip.mp4\n")


@job
def it_comes_through_a_pipe(desk):
    """From another program and into one; no file gets the name of the pipe, and nothing hangs."""
    desk.shell("ffmpeg -v error -y -i clip.mov -c copy -f mpegts clip.ts")
    expect("size", desk.shell("cat clip.ts | timeout 10 qlnmedia inspect - --json | jq '.streams[0].width'"), "160\n")
    expect_in("an index behind", "faststart", desk.shell("cat clip.mov | timeout 10 qlnmedia inspect -", 1))
    expect("a reader that goes away", desk.shell(
        "timeout 10 qlnmedia inspect clip.mov --elements | head -1").count("\n"), 1)
    desk.shell("mkfifo pipe; cat clip.ts >pipe & timeout 10 qlnmedia check pipe; rm pipe")
    expect("no file of that name", os.path.exists("-"), False)


@job
def i_do_not_find_the_words(desk):
    """One line that says what there is, and the help of commands at both widths."""
    for terminal in desk.terminals:
        expect("a wrong command", terminal.run("qlnmedia inspct clip.mov")[0], 2)
        expect_in("a wrong command", "inspect?", " ".join(terminal.lines()))
    for line, said in (("qlnmedia bogus", "there are inspect, patch,"),
                       ("qlnmedia inspect clip.mov --frames abc", "abc is no count"),
                       ("qlnmedia inspect missing.mov", "missing.mov: No such file")):
        text = desk.shell(line, None)
        expect_in(line, said, text)
        expect(f"lines of {line}", text.count("\n"), 1)
    for terminal in desk.terminals:
        for command in ("", "patch", "captions", "metadata", "command"):
            status, lines = terminal.run_narrow(f"qlnmedia {command} --help")
            expect("help", status, 0)
            expect_in("help", "sage", "\n".join(lines))
