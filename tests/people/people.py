"""Fifteen everyday jobs and four hosts in an installed tree: at terminals of 80 and 200 columns, in pipes and scripts."""
import glob
import os
import shutil
import subprocess
import sys

import jobs
from terminal import Terminal

build, work, cmake, c_compiler, cxx_compiler = sys.argv[1:6]
here = os.path.dirname(os.path.abspath(__file__))


class Desk:
    """Somebody's folder with some clips in it, and the installed program on the path."""

    def __init__(self, terminals):
        self.terminals = terminals

    def run(self, *command):
        return self.shell(command)

    def shell(self, command, status=0):
        """What a command prints, errors behind; `status` is what it must end with, None for any but 0."""
        words = command if isinstance(command, tuple) else ["bash", "-c", f"set -o pipefail; {command}"]
        done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, check=False, timeout=60)
        good = done.returncode != 0 if status is None else done.returncode == status
        if not good:
            raise SystemExit(f"status {done.returncode}: {command}\n{done.stdout}")
        return done.stdout


def install(prefix):
    shutil.rmtree(work, ignore_errors=True)
    os.makedirs(f"{work}/desk")
    subprocess.run([cmake, "--install", build, "--prefix", prefix], check=True, stdout=subprocess.DEVNULL)
    os.chdir(f"{work}/desk")
    os.environ.pop("LD_LIBRARY_PATH", None)
    os.environ.pop("NO_COLOR", None)
    os.environ.update(PATH=f"{prefix}/bin:{os.environ['PATH']}", HOME=f"{work}/home",
                      XDG_CONFIG_HOME=f"{work}/home/config", LC_ALL="C.UTF-8")


def make_clips(desk):
    pictures = "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x120:r=30000/1001:d=1 "
    avc = "-c:v libx264 -preset ultrafast -pix_fmt yuv420p "
    desk.shell(pictures + "-f lavfi -i sine=d=1 -c:a aac -b:a 32k " + avc + "clip.mov")
    desk.shell("ffmpeg -v error -y -i clip.mov -c copy clip.mp4")
    desk.shell(pictures + "-c:v libx265 -preset ultrafast -pix_fmt yuv420p10le -x265-params "
               "'log-level=none:colorprim=1:transfer=1:colormatrix=1:"
               "master-display=G(8500,39850)B(6550,2300)R(35400,14600)WP(15635,16450)L(10000000,1)' flat.mp4")
    with open("words.scc", "w", encoding="ascii") as file:
        file.write("Scenarist_SCC V1.0\n\n01:00:00:01\t94ae 94ae 9420 9420 9470 9470 c845 4c4c 4f80 942f 942f\n\n"
                   "01:00:00:25\t942c 942c\n")


def build_hosts(desk, prefix):
    """Compiled as the README tells, with no help to find the libraries but what a linker needs."""
    folder = os.path.dirname(glob.glob(f"{prefix}/**/qlnutil.pc", recursive=True)[0])
    os.environ["PKG_CONFIG_PATH"] = folder
    flags = {name: desk.shell(f"pkg-config --cflags --libs {name}").strip() for name in ("qlnutil", "qlnmedia")}
    rpath = f"-Wl,-rpath,'{os.path.dirname(folder)}'"
    makes = [(f"{c_compiler} -std=c11", "timecode.c", "qlnutil"),
             (f"{cxx_compiler} -std=c++17", "format.cpp", "qlnutil"),
             (f"{cxx_compiler} -std=c++20", "tagger.cpp", "qlnmedia"),
             (f"{cxx_compiler} -std=c++20", "reader.cpp", "qlnmedia")]
    # At once; one that does not build does not run below.
    desk.shell(" & ".join(
        f"{compiler} -O0 -Wall -Wextra -Werror '{here}/hosts/{source}' -o host_{source.split('.')[0]} "
        f"{flags[package]} {rpath}" for compiler, source, package in makes) + " & wait")
    jobs.expect("host in C", desk.shell("./host_timecode 1800"), "00:01:00;02\n")
    jobs.expect("host in C++17", desk.shell("./host_format 1920 1080 25"), "1920x1080P@25\n")
    desk.shell("./host_tagger clip.mp4 host.mp4")
    jobs.expect("host that tags", jobs.stream_of(desk, "host.mp4")["color_space"], "bt2020nc")
    jobs.expect("host that reads", desk.shell("./host_reader captioned.mov"), "CC1: HELLO\n")


def main():
    prefix = f"{work}/installed here"
    install(prefix)
    with Terminal(80, f"{work}/desk") as narrow, Terminal(200, f"{work}/desk") as wide:
        desk = Desk([narrow, wide])
        make_clips(desk)
        for work_of_a_day in jobs.JOBS:
            try:
                work_of_a_day(desk)
            except (SystemExit, subprocess.SubprocessError) as failure:
                sys.exit(f"{work_of_a_day.__name__}: {failure}")
        build_hosts(desk, prefix)
    print(f"{len(jobs.JOBS)} jobs are done, and four hosts run")


main()
