"""The stubs and the modules, by mypy: complete, and as the tests use them."""
from __future__ import annotations

import os
import pathlib
import subprocess
import sys

import qlnutil


def test_mypy_is_content(tmp_path: pathlib.Path) -> None:
    package = pathlib.Path(qlnutil.__file__).parent
    here = pathlib.Path(__file__).parent
    sources = [package, *sorted(here.glob("*.py")), *sorted((here.parents[1] / "python/examples").glob("*.py"))]
    done = subprocess.run(
        [sys.executable, "-m", "mypy", "--strict", "--cache-dir", str(tmp_path), "--config-file", str(here / "mypy.ini"),
         *map(str, sources)],
        cwd=here, env={**os.environ, "MYPYPATH": str(package.parent)}, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout + done.stderr


def test_every_function_of_the_extension_has_a_stub() -> None:
    from qlnutil import _core
    stub = pathlib.Path(qlnutil.__file__).with_name("_core.pyi").read_text()
    for name in dir(_core):
        if not name.startswith("_"):
            assert f"def {name}(" in stub or f"class {name}" in stub or f"{name}: int" in stub, name
