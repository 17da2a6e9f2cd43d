"""String literals and macro calls of C++ sources, read without a compiler."""
import re

TOKEN = re.compile(r"""
    (?P<comment> //[^\n]* | /\*.*?\*/ )
  | (?P<space>   \s+ )
  | (?P<include> \#\s*include[^\n]* )
  | (?P<string>  "(?:[^"\\\n]|\\.)*" )
  | (?P<char>    '(?:[^'\\\n]|\\.)*' )
  | (?P<name>    [A-Za-z_]\w* )
  | (?P<other>   . )
""", re.VERBOSE | re.DOTALL)


def tokens(source):
    """(kind, text) of each token. Literals that follow one another are one, with their escapes resolved."""
    found = []
    for match in TOKEN.finditer(source):
        kind, text = match.lastgroup, match.group()
        if kind in ("comment", "space", "include"):
            continue
        if kind == "string":
            text = unescaped(text[1:-1])
            if found and found[-1][0] == "string":
                found[-1] = (kind, found[-1][1] + text)
                continue
            if found and found[-1] == ("name", "R"):
                raise ValueError("a raw string literal, which is not expected in these sources")
        found.append((kind, text))
    return found


def unescaped(text):
    def resolve(match):
        known = {"n": "\n", '"': '"', "\\": "\\"}
        return known[match.group(1)]  # a KeyError names what is not expected in these sources
    return re.sub(r"\\(.)", resolve, text)


def string_literals(source):
    return [text for kind, text in tokens(source) if kind == "string"]


def calls(source, names):
    """(name, tokens of the arguments) of each call of one of these macros or functions."""
    stream = tokens(source)
    for index, (kind, text) in enumerate(stream[:-1]):
        if kind != "name" or text not in names or stream[index + 1] != ("other", "("):
            continue
        depth, end = 0, index + 1
        while True:
            depth += {("other", "("): 1, ("other", ")"): -1}.get(stream[end], 0)
            if depth == 0:
                break
            end += 1
        yield text, stream[index + 2:end]
