"""The work of qlnutil.media over many files: results come as they are done, and no file ends the run.

    for result in archive.check_all(archive.files("/archive"), journal="check.jsonl"):
        if not result.ok or result.value.worthy:
            print(result)

By default the files are worked on in processes of their own. Any concurrent.futures.Executor may be handed in, as that
of a cluster (dask.distributed: client.get_executor()), whose workers then open the paths that are given.

A file that fails is a result with an error, and so is one that ends its worker. With a journal, a run that was stopped
goes on where it was: files that are done come from the journal, unless they or the options changed since.
"""
from __future__ import annotations

import concurrent.futures as futures
import os
from collections.abc import Callable, Iterable, Iterator
from concurrent.futures.process import BrokenProcessPool
from dataclasses import dataclass, field, replace
from itertools import chain, islice
from typing import Any, TypeAlias

from . import _show, media
from ._journal import Journal, identity
from .errors import Cancelled, Error, NotApplicable, StreamError, WorkerDied

Path: TypeAlias = "str | os.PathLike[str]"

#: Endings of what is taken for media in folders.
ENDINGS = frozenset(
    ".mp4 .m4v .mov .qt .3gp .3g2 .ismv .cmfv .f4v .mkv .mk3d .webm .ts .m2ts .mts .trp .tp .m2t .mxf .gxf .avi .flv "
    ".wmv .asf .mpg .mpeg .m2p .vob .m2v .264 .h264 .avc .265 .h265 .hevc .dv".split())

_ERRORS = {kind.__name__: kind for kind in (Error, NotApplicable, Cancelled, StreamError, WorkerDied)}


def files(*folders: Path) -> Iterator[str]:
    """The media files of folders and of those below them, by their names; not hidden ones, nor behind links to folders."""
    def failed(error: OSError) -> None:
        raise Error(str(error.filename), error.strerror or "cannot be read")

    for folder in folders:
        for at, below, names in os.walk(folder, onerror=failed):
            below[:] = sorted(name for name in below if not name.startswith("."))
            for name in sorted(names):
                if not name.startswith(".") and os.path.splitext(name)[1].lower() in ENDINGS:
                    yield os.path.join(at, name)


@dataclass(frozen=True)
class Result:
    """What the work on one file came to."""

    #: The file that was read.
    path: str
    #: Findings, a Report, or a PatchResult; None where the file failed.
    value: Any = None
    error: Error | None = None
    #: The file that was written, of patch_all.
    dst: str | None = None
    #: It comes from the journal, and nothing was done now.
    resumed: bool = False

    @property
    def ok(self) -> bool:
        """Whether the work was done; a check may have found something all the same."""
        return self.error is None

    def __str__(self) -> str:
        return f"{self.path}: {self.error or self.value}"

    def _repr_html_(self) -> str:
        said = str(self.error) if self.error else "; ".join(map(str, self.value)) or "nothing found"
        return _show.table(("file", "result"), [(self.path, said)])


@dataclass(frozen=True)
class _Item:
    path: str
    dst: str | None = None
    #: What tells the file in the journal, as it was before the work.
    head: dict[str, Any] = field(default_factory=dict)


# Everything that a worker is handed, and hands back, is plain: it travels between processes and machines.
_Answer: TypeAlias = "tuple[Any, Error | None]"
_Work: TypeAlias = Callable[[_Item, dict[str, Any]], Any]


def _check(item: _Item, options: dict[str, Any]) -> Any:
    return media.check(item.path)


def _inspect(item: _Item, options: dict[str, Any]) -> Any:
    return media.inspect(item.path, **options)


def _patch(item: _Item, options: dict[str, Any]) -> Any:
    return media.patch(item.path, item.dst, **options)


def _attempt(work: _Work, item: _Item, options: dict[str, Any], turn: int = 0) -> _Answer:
    """Runs in the worker. turn tells tries apart: a cluster takes the same call for the same result."""
    try:
        return work(item, options), None
    except Error as error:
        return None, error
    except Exception as error:  # what is left is this file's trouble alone
        return None, Error(item.path, f"{type(error).__name__}: {error}")


def _finding_json(finding: media.Finding) -> dict[str, Any]:
    return {"what" if key == "kind" else key: value for key, value in vars(finding).items()}


def _plain(name: str, value: Any) -> dict[str, Any]:
    if name == "check":
        return {"findings": [_finding_json(finding) for finding in value]}
    return {"report": value} if name == "inspect" else {"lines": value.lines}


def _value(name: str, entry: dict[str, Any]) -> Any:
    if name == "check":
        return media.Findings(media.Finding(**{"kind" if key == "what" else key: value for key, value in one.items()})
                              for one in entry["findings"])
    return media.Report(entry["report"]) if name == "inspect" else media.PatchResult(entry["lines"])


def _status(value: Any, error: Error | None) -> int:
    """The exit status that qlnmedia has for it."""
    if error is not None:
        return 4 if isinstance(error, NotApplicable) else 1
    return 3 if isinstance(value, media.Findings) and value.worthy else 0


class _Run:
    """One run: items go to an executor a few at a time, and come back as results."""

    def __init__(self, name: str, work: _Work, options: dict[str, Any], executor: futures.Executor | None, jobs: int,
                 journal: Journal | None) -> None:
        self.name, self.work, self.options, self.journal, self.jobs = name, work, options, journal, jobs
        self.own = executor is None
        self.executor = executor or self._pool(jobs)
        self.waiting: dict[futures.Future[_Answer], _Item] = {}
        self.doubtful: list[_Item] = []  # that a cluster gave up
        self.retried = 0                 # of these

    @staticmethod
    def _pool(jobs: int) -> futures.Executor:
        return futures.ProcessPoolExecutor(jobs)

    def _head(self, item: _Item) -> dict[str, Any]:
        head: dict[str, Any] = {"work": self.name, "file": item.path, **identity(item.path)}
        options = {key: repr(value) for key, value in sorted(self.options.items())}
        if item.dst is not None:
            options["dst"] = item.dst
        return {**head, "options": options} if options else head

    def _result(self, item: _Item, value: Any, error: Error | None) -> Result:
        if self.journal is not None:
            said = (_plain(self.name, value) if error is None else
                    {"error": str(error), "failure": [type(error).__name__, error.path, error.what, error.advice]})
            self.journal.add({**item.head, "status": _status(value, error), **said})
        return Result(item.path, value, error, item.dst)

    def _from_journal(self, item: _Item) -> Result | None:
        entry = None if self.journal is None else self.journal.find(item.head)
        if entry is None or (item.dst is not None and not os.path.exists(item.dst) and "error" not in entry):
            return None
        if "error" in entry:
            kind, *parts = entry.get("failure", ["Error", item.path, entry["error"], ""])
            return Result(item.path, None, _ERRORS.get(kind, Error)(*parts), item.dst, True)
        return Result(item.path, _value(self.name, entry), None, item.dst, True)

    def _submit(self, item: _Item) -> None:
        try:
            future = self.executor.submit(_attempt, self.work, item, self.options, self.retried)
        except futures.BrokenExecutor as error:
            future = futures.Future()
            future.set_exception(error)
        self.waiting[future] = item

    def _alone(self, item: _Item) -> Result:
        """In a process of its own, which no other file can have ended; twice, since the system may have."""
        for _ in range(2):
            with futures.ProcessPoolExecutor(1) as pool:
                try:
                    return self._result(item, *pool.submit(_attempt, self.work, item, self.options).result())
                except BrokenProcessPool:
                    continue
        return self._result(item, None, WorkerDied(item.path, "the process that worked on it ended"))

    def _mend(self) -> list[_Item]:
        """Puts a pool in the place of the broken one; gives the items that one of its processes may have died of."""
        suspects = list(self.waiting.values())
        self.waiting.clear()
        if self.own:
            self.executor.shutdown(wait=False, cancel_futures=True)
        self.own, self.executor = True, self._pool(self.jobs)
        return suspects

    def _done(self, future: futures.Future[_Answer], item: _Item) -> Result | None:
        """The result; None for an item that is to be tried once more, when nothing else is at work."""
        try:
            value, error = future.result()
        except futures.BrokenExecutor:
            raise
        except (Exception, futures.CancelledError) as failure:
            # What the file does is an answer, so this is the executor's trouble: a cluster gives up what waited in
            # its workers as well as what ended them.
            if self.doubtful.count(item) < 2:
                self.doubtful.append(item)
                return None
            if type(failure).__name__ == "KilledWorker":
                return self._result(item, None, WorkerDied(item.path, "its workers ended, again and again"))
            return self._result(item, None, Error(item.path, f"{type(failure).__name__}: {failure}"))
        return self._result(item, value, error)

    def results(self, items: Iterator[_Item], ahead: int) -> Iterator[Result]:
        try:
            while True:
                for item in islice(items, max(0, ahead - len(self.waiting))):
                    if self.journal is not None:
                        item = replace(item, head=self._head(item))
                    known = self._from_journal(item)
                    if known is not None:
                        yield known
                    else:
                        self._submit(item)
                if not self.waiting:
                    following = next(items, None)
                    if following is not None:
                        items = chain((following,), items)
                        continue
                    if self.retried == len(self.doubtful):
                        return
                    self.retried += 1
                    self._submit(self.doubtful[self.retried - 1])
                done, _ = futures.wait(self.waiting, return_when=futures.FIRST_COMPLETED)
                for future in done:
                    if future not in self.waiting:
                        continue
                    try:
                        result = self._done(future, self.waiting[future])
                    except futures.BrokenExecutor:
                        for suspect in self._mend():
                            yield self._alone(suspect)
                        break
                    del self.waiting[future]
                    if result is not None:
                        yield result
        finally:
            self._stop()

    def _stop(self) -> None:
        for future in self.waiting:
            future.cancel()
        if self.own:
            self.executor.shutdown(wait=True, cancel_futures=True)
        if self.journal is not None:
            self.journal.close()


def _all(name: str, work: _Work, items: Iterable[_Item], options: dict[str, Any], executor: futures.Executor | None,
         journal: Path | None, jobs: int | None) -> Iterator[Result]:
    count = jobs or os.cpu_count() or 1
    if count < 1:
        raise ValueError(f"jobs are counted from 1, not {count}")
    # A cluster wants some work in hand; nobody wants a million futures.
    ahead = 2 * count if executor is None else max(256, 2 * count)
    kept = None if journal is None else Journal(journal)
    return _Run(name, work, options, executor, count, kept).results(iter(items), ahead)


def check_all(paths: Iterable[Path], executor: futures.Executor | None = None, *, journal: Path | None = None,
              jobs: int | None = None) -> Iterator[Result]:
    """Checks files (see qlnutil.media.check); values are Findings.

    jobs: processes, where no executor is given; as many as there are processors by default. The journal is that of
    `qlnmedia check --journal` as well. Closing the iterator ends the run; what is at work is waited for.
    """
    return _all("check", _check, (_Item(os.fspath(path)) for path in paths), {}, executor, journal, jobs)


def inspect_all(paths: Iterable[Path], executor: futures.Executor | None = None, *, journal: Path | None = None,
                jobs: int | None = None, **options: Any) -> Iterator[Result]:
    """Inspects files; the options are those of qlnutil.media.inspect, and values are Reports."""
    return _all("inspect", _inspect, (_Item(os.fspath(path)) for path in paths), options, executor, journal, jobs)


def patch_all(pairs: Iterable[tuple[Path, Path]], executor: futures.Executor | None = None, *,
              journal: Path | None = None, jobs: int | None = None, **options: Any) -> Iterator[Result]:
    """Patches files: (source, destination) each; the options are those of qlnutil.media.patch, but for progress.

    Values are PatchResults. What the journal has as done is done again where its destination is gone.
    """
    items = (_Item(os.fspath(src), os.fspath(dst)) for src, dst in pairs)
    return _all("patch", _patch, items, options, executor, journal, jobs)
