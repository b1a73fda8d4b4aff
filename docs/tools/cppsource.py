"""What the programs of this folder know of C++: tokens, arguments, texts."""
import re

TOKEN = re.compile(
    r"""//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])+'|[A-Za-z_]\w*|\d[\w.']*"""
    r"""|\\\n|\s+|.""", re.S)
OPEN, CLOSE = "([{", ")]}"


def tokens(text):
    return [t for t in TOKEN.findall(text)
            if not t.isspace() and not t.startswith(("//", "/*", "\\"))]


def arguments_at(toks, at):
    """The arguments of a call whose '(' stands at `at`, each a list of tokens."""
    depth, arguments = 1, [[]]
    while depth and (at := at + 1) < len(toks):
        depth += (toks[at] in OPEN) - (toks[at] in CLOSE)
        if depth == 1 and toks[at] == ",":
            arguments.append([])
        elif depth:
            arguments[-1].append(toks[at])
    return arguments


def literals(argument):
    """The texts of an argument: adjacent literals are one, `a ? "x" : "y"` has two. What a macro
    puts in (`"..." #NAME "..."`) stands as <type>."""
    found, joins = [], False
    for i, tok in enumerate(argument):
        if tok.startswith('"'):
            if joins:
                found[-1] += tok[1:-1]
            else:
                found.append(tok[1:-1])
            joins = True
        elif tok == "#" and joins:
            found[-1] += "<type>"
        elif not (joins and argument[i - 1] == "#"):
            joins = False
    return found
