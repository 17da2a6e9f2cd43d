"""C++ as the mutation operators see it: tokens, functions and their statements.

Enough for the library's own style (clang-format, braces everywhere), no parser for C++ at large.
"""
import bisect
import re

TOKEN = re.compile(
    r"""
  (?P<definition>^[ ]*\#[ ]*define[ ]+\w+(?:\([^)\n]*\))?)
| (?P<directive>^[ ]*\#[^\n]*)
| (?P<space>\s+|\\\n)
| (?P<comment>//[^\n]*|/\*.*?\*/)
| (?P<string>"(?:\\.|[^"\\\n])*")
| (?P<character>'(?:\\.|[^'\\\n])*')
| (?P<number>\d(?:[eE][+-]|[\w.'])*)
| (?P<name>[A-Za-z_]\w*)
| (?P<mark><<=|>>=|\.\.\.|->|::|\+\+|--|<<|>>|<=|>=|==|!=|&&|\|\||[-+*/%&|^]=|.)
""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)
NO_CODE = {"space", "comment", "directive", "definition"}
BRACKETS = {"(": ")", "[": "]", "{": "}"}
CONTROL = {"if", "for", "while", "switch"}
BINARY = ("||", "&&", "|", "^", "&", "== !=", "< <= > >=", "<< >>", "+ -", "* / %")  # what binds least is first
LEVELS = {mark: level for level, marks in enumerate(BINARY) for mark in marks.split()}
NO_OPERAND = {"", ";", ",", "?", ":", "return", "}"}


class Token:
    def __init__(self, match):
        self.kind = match.lastgroup
        self.text = match.group()
        self.begin = match.start()
        self.end = match.end()
        self.in_macro = False


class Statement:
    """Tokens first..last of a source. `header` holds the positions of a control statement's parentheses."""

    def __init__(self, first, last, header=None):
        self.first = first
        self.last = last
        self.header = header


class Function:
    """Tokens start..closing of a declaration with its body, which begins at `opening`; `parameters_end` closes its
    parameters. Lambdas belong to the function around them."""

    def __init__(self, name, start, parameters_end, opening, closing):
        self.name = name
        self.start = start
        self.parameters_end = parameters_end
        self.opening = opening
        self.closing = closing


class Source:
    """A file: `tokens` without spaces and comments, `partner` of each bracket, `functions`, `blocks`: the lists
    of statements that stand side by side."""

    def __init__(self, path, text):
        self.path = path
        self.text = text
        self.tokens = self._read_tokens()
        self.partner = self._match_brackets()
        self.opening = {closing: opening for opening, closing in self.partner.items()}
        self.skipped = self._find_skipped()
        self.functions = []
        self.initialisers = []  # token ranges of braces that hold values outside functions
        self.blocks = []
        self._read_scope(0, len(self.tokens))
        for function in self.functions:
            self._read_block(function.opening, function.closing)
        self._line_begins = [0] + [match.end() for match in re.finditer("\n", text)]

    def word(self, position):
        """The text of the token at a position; nothing outside the file."""
        return self.tokens[position].text if 0 <= position < len(self.tokens) else ""

    def span(self, first, last):
        """The range of characters of the tokens first..last."""
        return self.tokens[first].begin, self.tokens[last].end

    def between(self, first, last):
        """The source text of the tokens first..last."""
        return self.text[slice(*self.span(first, last))]

    def function_at(self, offset):
        """The name of the function that holds a character of the text; nothing outside functions."""
        for function in self.functions:
            if self.tokens[function.start].begin <= offset < self.tokens[function.closing].end:
                return function.name
        return ""

    def lines_around(self, begin, end):
        """Range of the whole lines that hold a range of characters."""
        first = self._line_begins[bisect.bisect_right(self._line_begins, begin) - 1]
        last = self.text.find("\n", max(begin, end - 1))
        return first, last if last >= 0 else len(self.text)

    def line_number(self, offset):
        return bisect.bisect_right(self._line_begins, offset)

    def is_binary(self, position):
        """Whether a token is a binary operator: clang-format leaves spaces around them, and around no other."""
        token = self.tokens[position]
        return (token.text in LEVELS and self.text[token.begin - 1].isspace()
                and self.text[token.end : token.end + 1].isspace())

    def operands(self, position):
        """The ranges of tokens left and right of the binary operator at a position."""
        level = LEVELS[self.word(position)]
        first = self._operand_end(position - 1, -1, level, self.opening)
        return (first, position - 1), (position + 1, self._operand_end(position + 1, 1, level + 1, self.partner))

    def _operand_end(self, position, step, level, brackets):
        """Where an operand ends in a direction: at the brackets around it, between expressions, at operators that
        bind less than a level."""
        while True:
            position = brackets.get(position, position)
            word = self.word(position + step)
            if position + step not in brackets and (word in BRACKETS or word in BRACKETS.values()):
                return position
            if word in NO_OPERAND or (word.endswith("=") and word not in LEVELS):
                return position
            if self.is_binary(position + step) and LEVELS[word] < level:
                return position
            position += step

    def split(self, opening):
        """The ranges of tokens between the commas of a bracket."""
        ranges = []
        first = position = opening + 1
        while position < self.partner[opening]:
            if self.word(position) == ",":
                ranges.append((first, position - 1))
                first = position + 1
            position = self.partner.get(position, position) + 1
        if first < self.partner[opening]:
            ranges.append((first, self.partner[opening] - 1))
        return [(begin, end) for begin, end in ranges if begin <= end]

    def in_code(self, position):
        """Whether a token stands inside a function or among the values of a table."""
        return (
            self.tokens[position].in_macro
            or any(each.parameters_end < position <= each.closing for each in self.functions)
            or any(opening <= position <= closing for opening, closing in self.initialisers)
        )

    def _read_tokens(self):
        tokens = []
        macro_end = 0
        for match in TOKEN.finditer(self.text):
            if match.lastgroup == "definition":
                macro_end = re.compile(r"(?<!\\)\n|\Z").search(self.text, match.end()).start()
            if match.lastgroup not in NO_CODE:
                tokens.append(Token(match))
                tokens[-1].in_macro = match.start() < macro_end
        return tokens

    def _match_brackets(self):
        partner = {}
        open_ones = []
        for position, token in enumerate(self.tokens):
            if token.kind != "mark":
                continue
            if token.text in BRACKETS:
                open_ones.append(position)
            elif token.text in BRACKETS.values():
                opening = open_ones.pop()
                partner[opening] = position
        return partner

    def _find_skipped(self):
        """Tokens that make no code: static assertions, attributes, template parameters."""
        skipped = set()
        for position, token in enumerate(self.tokens):
            last = None
            if token.text == "static_assert":
                last = self.partner[position + 1]
            elif token.text == "[" and self.word(position + 1) == "[":
                last = self.partner[position]
            elif token.text == "template":
                last = position
                while self.word(last) != ">":
                    last += 1
            if last is not None:
                skipped.update(range(position, last + 1))
        return skipped

    def _read_scope(self, first, end):
        """Find the functions between two tokens of a namespace or a class."""
        start = position = first
        parameters = None  # the first parentheses of the declaration
        while position < end:
            word = self.word(position)
            if word == ";" or self.tokens[position].in_macro:
                start, parameters = position + 1, None
            elif word == "(":
                if parameters is None and position not in self.skipped:
                    parameters = position
                position = self.partner[position]
            elif word == "[":
                position = self.partner[position]
            elif word == "{":
                closing = self.partner[position]
                if self._is_member_value(position, parameters):
                    position = closing + 1
                    continue
                self._read_braces(start, position, parameters)
                if self.word(closing + 1) != ";":
                    start, parameters = closing + 1, None
                position = closing
            elif word in ("public", "private", "protected") and self.word(position + 1) == ":":
                start = position + 2
            position += 1

    def _is_member_value(self, opening, parameters):
        """Whether braces give a member its value in a constructor's list, as in "a_{1}"."""
        return (
            parameters is not None
            and self.word(self.partner[parameters] + 1) == ":"
            and self.tokens[opening - 1].kind == "name"
        )

    def _read_braces(self, start, opening, parameters):
        closing = self.partner[opening]
        words = [self.word(each) for each in range(start, opening)]
        if parameters is not None and "=" not in words[: parameters - start]:
            name = self.word(parameters - 1)
            self.functions.append(Function(name, start, self.partner[parameters], opening, closing))
        elif "enum" in words:
            pass
        elif any(each in words for each in ("namespace", "class", "struct")):
            self._read_scope(opening + 1, closing)
        else:
            self.initialisers.append((opening, closing))

    def _read_block(self, opening, closing):
        statements = []
        position = opening + 1
        while position < closing:
            statement = self._read_statement(position)
            statements.append(statement)
            position = statement.last + 1
        self.blocks.append(statements)

    def _read_statement(self, first):
        word = self.word(first)
        if word in CONTROL:
            header = first + 1
            body = self.partner[header] + 1
            last = self.partner[body]
            self._read_block(body, last)
            if self.word(last + 1) == "else":
                rest = self._read_statement(last + 2)
                last = rest.last
            return Statement(first, last, header)
        if word == "{":
            self._read_block(first, self.partner[first])
            return Statement(first, self.partner[first])
        position = first
        while self.word(position) != ";":
            if position in self.partner:
                self._read_lambdas(position)
                position = self.partner[position]
            position += 1
        return Statement(first, position)

    def _read_lambdas(self, opening):
        """The bodies of lambdas in and between brackets of a statement."""
        for position in range(opening, self.partner[opening] + 1):
            if self.word(position) == "{" and self._is_lambda(position):
                self._read_block(position, self.partner[position])

    def _is_lambda(self, brace):
        before = brace - 1
        if self.word(before - 1) == "->":
            before -= 2
        if self.word(before) == ")":
            before = self.opening[before] - 1
        return self.word(before) == "]"
