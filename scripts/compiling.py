"""What the scripts that compile the sources share: the commands of build/checks, a configuration
without precompiled headers that is never built, and a pool of as many compilers as there are cores.
"""

import json
import os
import shlex
import subprocess
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import sources

root = Path(__file__).resolve().parent.parent


def files(suffix):
    """All of the tree with that suffix."""
    tops = ("memblock", "tests", "examples", "fuzz", "bench", "python")
    return sources.tracked(root, *(f"{top}/*{suffix}" for top in tops))


def commands():
    """The compile command of each source of the tree, without output and input file."""
    missing, _ = run(["c++", "-E", "-x", "c++", "-"], "#include <benchmark/benchmark.h>\n")
    bench = f"-DMEMBLOCK_BUILD_BENCH={'OFF' if missing else 'ON'}"
    status, output = run(["cmake", "--preset", "checks", bench])
    if status:
        raise SystemExit(output)
    result = {}
    for entry in json.loads((root / "build/checks/compile_commands.json").read_text()):
        path = Path(entry["file"])
        if path.is_relative_to(root) and not path.is_relative_to(root / "build"):
            words = shlex.split(entry["command"])
            output = words.index("-o")
            result[str(path.relative_to(root))] = words[:output]
    return result


def flags_for(commands, path):
    """The command of a source; for a header that of a source in its folder or one above it."""
    if path in commands:
        return commands[path]
    folder = Path(path).parent
    while folder != folder.parent:
        for source in commands:
            if Path(source).is_relative_to(folder):
                return commands[source]
        folder = folder.parent
    raise SystemExit(f"{path}: no source beside it, so no flags")


def run(command, text=None):
    """(exit status, all output) of a command in the root of the tree."""
    pipes = {"stdout": subprocess.PIPE, "stderr": subprocess.STDOUT, "text": True}
    done = subprocess.run(command, cwd=root, input=text, **pipes)
    return done.returncode, done.stdout


def parallel(work, todo):
    with ThreadPoolExecutor(os.cpu_count()) as pool:
        yield from pool.map(work, todo)
