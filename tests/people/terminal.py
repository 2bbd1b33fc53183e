"""A terminal of a chosen width, with somebody who reads it and types."""
import os
import shlex
import subprocess
import time

END = "== that was it"  # on the screen behind each command


class Terminal:
    """Runs commands one after the other in a tmux of its own, which goes away with it."""

    def __init__(self, columns, folder):
        self.columns = columns
        self.folder = folder
        self.tmux = ["tmux", "-L", f"qlnmedia-{os.getpid()}-{columns}", "-f", "/dev/null"]
        self.runs = 0

    def __enter__(self):
        self.call("new-session", "-d", "-x", str(self.columns), "-y", "50", "sleep 600")
        self.call("set-option", "-g", "history-limit", "5000")
        self.call("set-option", "-g", "status", "off")
        return self

    def __exit__(self, *_):
        self.call("kill-server")

    def call(self, *words):
        return subprocess.run([*self.tmux, *words], capture_output=True, text=True, check=True, timeout=20).stdout

    def start(self, command):
        """Begins a command; shell text."""
        self.runs += 1
        self.status = f"{self.folder}/status-{self.columns}-{self.runs}"
        done = shlex.quote(self.status)
        line = (f"cd {shlex.quote(self.folder)}; {command}; echo $? >{done}.new; echo; echo '{END}'; "
                f"mv {done}.new {done}; sleep 600")
        self.call("new-window", "-k", "-t", ":9", "sh", "-c", line)

    def lines(self, joined=False):
        """What stands there, without the empty lines at the end; `joined`: lines that were too wide in one."""
        text = self.call("capture-pane", "-p", "-t", ":9", "-S", "-", *(["-J"] if joined else []))
        return [line.rstrip() for line in text.rstrip().split("\n")]

    def wait_for(self, done, seconds=20):
        end = time.monotonic() + seconds
        while not done():
            if time.monotonic() > end:
                raise SystemExit("no answer within %s s; the terminal shows:\n%s" % (seconds, "\n".join(self.lines())))
            time.sleep(0.02)

    def type(self, text):
        self.call("send-keys", "-t", ":9", "-l", text)
        self.call("send-keys", "-t", ":9", "Enter")

    def finish(self):
        """Waits for the command's end: its exit status, and what it left on the screen."""
        self.wait_for(lambda: os.path.exists(self.status))
        # What was printed takes its time to the screen.
        self.wait_for(lambda: END in self.lines())
        with open(self.status, encoding="ascii") as file:
            return int(file.read()), "\n".join(self.lines()[:-1]).rstrip().split("\n")

    def run(self, command):
        self.start(command)
        return self.finish()

    def run_narrow(self, command):
        """The same for what must not be wider than the terminal."""
        status, lines = self.run(command)
        if len(self.lines(joined=True)) != len(self.lines()):
            raise SystemExit("wider than %d columns: %s\n%s" % (self.columns, command, "\n".join(lines)))
        return status, lines
