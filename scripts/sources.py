"""What the scripts that read the sources share: the files of the library, their includes and the
floors that these cross, their functions."""

import re
import sys

# A header includes from lower floors and its own folder only. `threads` has two floors: locks and
# shared objects, which everything may use, and the pools, which carry values from thread to thread.
FLOORS = {
    "base": 0,
    "threads": 1,
    "logging": 2,
    "core": 3,
    "serial": 4,
    "threads (pools)": 5,
    "vector": 6,
    "statistic": 7,
    "imaging": 7,
    "collections": 7,
    "measure": 8,
    "interchange": 9,
}
LOW_THREADS = ("mutex", "threadsharable", "xtime_internal")
EVERYWHERE = "core/fwd.h"  # only declares


def tracked(root, *patterns):
    """The files that match a pattern, which begins with a folder; `*` also matches `/`."""
    rules = [re.compile(re.escape(p).replace(r"\*", ".*") + "$") for p in patterns]
    tops = {p.split("/")[0] for p in patterns}
    paths = (path for top in tops for path in (root / top).rglob("*") if path.is_file())
    files = (str(path.relative_to(root)) for path in paths)
    return sorted(f for f in files if any(r.match(f) for r in rules))


def library(root):
    return tracked(root, "memblock/*.h", "memblock/*.cpp")


def is_public(path):
    return path.endswith(".h") and not path.endswith(("_internal.h", "_kernels.h"))


def includes(root, path):
    """The headers of the library that a file includes, without `memblock/`."""
    text = (root / path).read_text()
    return re.findall(r'^\s*#\s*include\s*[<"]memblock/(\w+/[\w./]+)[>"]', text, re.M)


def floor(path):
    """The folder that the floor of a file depends on, of a path without `memblock/`."""
    folder, name = path.split("/")[0], path.split("/")[-1].rsplit(".", 1)[0]
    if folder not in FLOORS:
        sys.exit(f"memblock/{path}: {folder} has no floor in scripts/sources.py")
    return "threads (pools)" if folder == "threads" and name not in LOW_THREADS else folder


def upward(root):
    """(file, header) for each include that does not lead to a lower floor or the same folder."""
    for path in library(root):
        if path.count("/") < 2:
            continue
        own = floor(path.removeprefix("memblock/"))
        for header in includes(root, path):
            used = floor(header)
            if used != own and header != EVERYWHERE and FLOORS[used] >= FLOORS[own]:
                yield path, header


# -- functions --

_BLANKED = re.compile(
    r'//[^\n]*|/\*.*?\*/|R"(\w*)\(.*?\)\1"|"(?:\\.|[^"\\\n])*"'
    r"|(?<![0-9a-fA-F])'(?:\\.|[^'\\\n])+'|^[ \t]*#(?:[^\n]*\\\n)*[^\n]*",
    re.S | re.M,
)
_NAME = re.compile(r"((?:\w+::)*(?:operator\s*(?:\(\)|\w+\*?|[^\s(]+)|~?\w+))\s*\(")
_NO_FUNCTION = re.compile(
    r"\s*(?:template\s*<[^{]*>\s*)?(?:class|struct|union|enum|namespace|extern)\b[^(]*$"
    r"|[^(]*[^(r]=[^=(]"  # an initializer; but neither operator== nor operator=
)


def code(text):
    """The text with comments, literals and preprocessor lines blanked, line breaks kept."""
    return _BLANKED.sub(lambda m: re.sub(r"[^\n]", " ", m[0]), text)


def functions(text):
    """(lines, name) of each function with a body: from the line of its name to the closing brace. A
    lambda or a local class belongs to the function around it."""
    text = code(text)
    start = 0  # of the statement, outside of functions
    depth = 0  # of braces, inside of one
    for match in re.finditer(r"[{};]|\b(?:public|protected|private):", text):
        if depth:
            depth += {"{": 1, "}": -1}.get(match[0], 0)
            if not depth:
                yield text.count("\n", begin, match.start()) + 1, name[1]
        elif match[0] == "{":
            head = text[start : match.start()]
            name = _NAME.search(head)
            if name and not _NO_FUNCTION.match(head):
                begin, depth = start + name.start(), 1
        if not depth:
            start = match.end()
