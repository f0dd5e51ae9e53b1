"""A copy of the sources with all mutants of a table in it.

A table is a list of objects:

    id      short, unlike all others of the table
    kind    bound, sign, order, rounding or dropped
    file    the source file, from the top of the project
    in      text that stands exactly once in the file, on one line or more
    old     the piece of `in` that is replaced, which stands once in it; all of it if not given
    new     what stands there instead; empty where a statement is dropped
    why     only where no test sees it: the reason

What is replaced is a statement if it ends with ; or }, otherwise a piece of an expression. That becomes a
choice, so it can't be a declaration, a constant expression or a template argument.
"""

import json
import pathlib
import re
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
KINDS = {"bound", "sign", "order", "rounding", "dropped"}
CHOICE = """#pragma once
#include <cstdlib>
// What a mutant changes may warn: of unlike types, of what isn't used any more.
{ignored}
inline bool morvaMutant(int number) {{
    static const int chosen = [] {{
        const char* const text = std::getenv("MORVA_MUTANT");
        return text ? std::atoi(text) : 0;
    }}();
    return number == chosen;
}}
"""
WARNINGS = ("sign-compare", "extra", "float-conversion", "double-promotion", "narrowing", "parentheses",
            "pedantic", "unused-variable", "unused-parameter", "unused-but-set-variable",
            "unused-value", "unused-function", "shadow", "maybe-uninitialized", "return-type",
            "duplicated-branches", "enum-compare", "implicit-fallthrough", "empty-body",
            "dangling-pointer", "stringop-overflow", "array-bounds", "div-by-zero")


def read_table(folder):
    path = pathlib.Path(__file__).resolve().parent / f"{folder}.json"
    try:
        table = json.loads(path.read_text())
    except (OSError, ValueError) as error:
        sys.exit(f"no table of mutants for {folder}: {error}")
    ids = set()
    for mutant in table:
        missing = {"id", "kind", "file", "in", "new"} - set(mutant)
        if missing or mutant["kind"] not in KINDS or mutant["id"] in ids:
            sys.exit(f"{path.name}: {mutant.get('id')}: same id twice, no such kind, or without "
                     f"{', '.join(sorted(missing)) or 'fault'}")
        ids.add(mutant["id"])
    return table


# The operators by how tightly they bind; assignments and commas end an expression here.
LEVELS = (("||",), ("&&",), ("|",), ("^",), ("&",), ("==", "!="), ("<", ">", "<=", ">="), ("<<", ">>"),
          ("+", "-"), ("*", "/", "%"))
LEVEL = {operator: level for level, row in enumerate(LEVELS) for operator in row}
TOKEN = re.compile(r"""\s+|//[^\n]*|/\*.*?\*/|"(?:\\.|[^"\\])*"|'(?:\\.|[^'\\])+'|[A-Za-z_]\w*
    |\.?\d(?:[\w.']|(?<=[eE])[+-])*|::|->|<<=|>>=|<=|>=|==|!=|&&|\|\||<<|[-+*/%&|^]=|\+\+|--|.""",
                   re.X | re.S)
# A comparison has spaces around it, as the format asks.
TEMPLATE = re.compile(r"\w+<(?:[^<>;{}]|<(?:[^<>;{}]|<[^<>;{}]*>)*>)*>")
ENDS = {",", ";", "{", "}", "?", ":", "=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>=",
        "return", "throw", "case", "else", "do", "co_return"}


def tokens_of(text):
    """Tokens with their places, a template's name and arguments as one, without white space."""
    found, at = [], 0
    while at < len(text):
        match = TEMPLATE.match(text, at) if text[at].isalpha() else None
        match = match or TOKEN.match(text, at)
        if not match.group().isspace() and not match.group().startswith(("//", "/*")):
            found.append((match.group(), match.start(), match.end()))
        at = match.end()
    return found


def is_operand_end(token):
    return token[-1].isalnum() or token[-1] in "_)]\"'>" and token not in (">", ">=", "->", ">>")


def is_binary(tokens, index):
    """Whether a token is a binary operator: there is an operand before it."""
    return tokens[index][0] in LEVEL and index > 0 and is_operand_end(tokens[index - 1][0]) and \
        tokens[index - 1][0] not in ENDS


def within(tokens, first, last):
    """What lies between brackets that open and close outside of the tokens: whether there is a comma, the
    level of the operator that binds least, and how many brackets are closed and opened alone."""
    comma, floor, closed, opened = False, len(LEVELS), 0, 0
    for i in range(first, last + 1):
        token = tokens[i][0]
        if token in ")]}" and opened == 0:
            closed += 1
        else:
            opened += (token in "([{") - (token in ")]}")
        if opened == 0:
            comma = comma or token == ","
            if token == "?":
                floor = -1
            elif is_binary(tokens, i):
                floor = min(floor, LEVEL[token])
    return comma, floor, closed, opened


def whole_expression(text, start, end):
    """The smallest whole expression of the text that has [start, end) in it.

    Whole is what can stand in parentheses without a change of sense: what lies between brackets, commas,
    semicolons, assignments, and, where that is enough, between operators that bind less tightly. Of
    arguments with a comma among them that is the call.
    """
    tokens = tokens_of(text)
    first = next(i for i, token in enumerate(tokens) if token[2] > start)
    last = max(i for i, token in enumerate(tokens) if token[1] < end)
    comma, floor, closed, opened = within(tokens, first, last)
    floor = len(LEVELS) if comma else floor

    def ends(i):
        return tokens[i][0] in ENDS or (is_binary(tokens, i) and LEVEL[tokens[i][0]] < floor)

    left, depth = first, closed + comma
    while left > 0:
        token = tokens[left - 1][0]
        if depth == 0 and (token in "([{" or ends(left - 1)):
            break
        depth += (token in ")]}") - (token in "([{")
        left -= 1
    right, depth = last, opened + comma
    while right + 1 < len(tokens):
        token = tokens[right + 1][0]
        if depth == 0 and (token in ")]}" or ends(right + 1)):
            break
        depth += (token in "([{") - (token in ")]}")
        right += 1
    return tokens[left][1], tokens[right][2]


def place_of(text, mutant):
    """The span that a mutant replaces."""
    whole = mutant["in"]
    old = mutant.get("old", whole)
    if text.count(whole) != 1:
        sys.exit(f"{mutant['id']}: `in` stands {text.count(whole)} times in {mutant['file']}")
    if whole.count(old) != 1:
        sys.exit(f"{mutant['id']}: `old` stands {whole.count(old)} times in `in`")
    start = text.index(whole) + whole.index(old)
    return start, start + len(old)


def is_statement(text, start, end):
    """Whether the span is whole statements: it ends as one, and one may begin there."""
    before = tokens_of(text[:start])
    return text[start:end].rstrip().endswith((";", "}")) and before and \
        before[-1][0] in (";", "{", "}", ")", ":", "else", "do")


def changed(text, mutant, number):
    """The span that a mutant takes up, and what stands there with the choice of it."""
    start, end = place_of(text, mutant)
    chosen = f"morvaMutant({number})"
    new = " ".join(mutant["new"].split("\n"))
    if is_statement(text, start, end):
        old = text[start:end]
        if not new:
            return start, end, f"{{ if (!{chosen}) {{ {old} }} }}"
        return start, end, f"{{ if ({chosen}) {{ {new} }} else {{ {old} }} }}"
    if text[start:end].endswith(";") and new.endswith(";"):
        end, new = end - 1, new[:-1]
    left, right = whole_expression(text, start, end)
    old = text[left:right]
    new = " ".join((text[left:start] + new + text[end:right]).split("\n"))
    if old.startswith("{"):  # a list in braces can't be part of a choice, but the return of it can
        before = tokens_of(text[:left])[-1]
        if before[0] != "return" or text[right] != ";":
            sys.exit(f"{mutant['id']}: a list in braces: take the whole statement as `old`")
        return before[1], right + 1, f"{{ if ({chosen}) {{ return {new}; }} else {{ return {old}; }} }}"
    return left, right, f"({chosen} ? ({new}) : ({old}))"


def with_mutants(text, mutants):
    """A source file with its (number, mutant) pairs, line for line as it was."""
    spans = sorted(changed(text, mutant, number) + (mutant["id"],) for number, mutant in mutants)
    for before, after in zip(spans, spans[1:]):
        if before[1] > after[0]:
            sys.exit(f"{before[3]} and {after[3]} change the same text of {mutants[0][1]['file']}")
    for start, end, choice, _ in reversed(spans):
        text = text[:start] + choice + text[end:]
    return text


def put(path, data):
    """Writes a file unless it is so already, so that little is built anew."""
    if not path.exists() or path.read_bytes() != data:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_bytes(data)


def write(build, table):
    """Brings the copy below `build` up to date; returns it. Files that aren't there any more go."""
    listed = subprocess.run(["git", "ls-files", "-z", "-co", "--exclude-standard"], cwd=ROOT, check=True,
                            capture_output=True, text=True).stdout.split("\0")
    files = {name for name in listed if name and (ROOT / name).is_file()}
    mutants = {}
    for number, mutant in enumerate(table, 1):
        if mutant["file"] not in files:
            sys.exit(f"{mutant['id']}: no file {mutant['file']}")
        mutants.setdefault(mutant["file"], []).append((number, mutant))
    texts = {name: with_mutants((ROOT / name).read_text(), of) for name, of in mutants.items()}

    tree = pathlib.Path(build).resolve() / "source"
    header = tree / "morva_mutant.h"
    for path in tree.rglob("*") if tree.exists() else ():
        name = path.relative_to(tree)
        if name.parts[0] != "build" and path.is_file() and str(name) not in files and path != header:
            path.unlink()
    ignored = "\n".join(f'#pragma GCC diagnostic ignored "-W{name}"' for name in WARNINGS)
    put(header, CHOICE.format(ignored=ignored).encode())
    for name in files:
        if name in texts:
            put(tree / name, f'#include "{header}"\n#line 1\n{texts[name]}'.encode())
        else:
            put(tree / name, (ROOT / name).read_bytes())
            shutil.copymode(ROOT / name, tree / name)
    return tree
