"""The mutation operators: each takes a source and yields replacements of a range of its text.

An operator is a function (source, project) -> iterator of (begin, end, replacement), entered in OPERATORS under the
name that reports show.
"""
import re

from project import following, value_of

OPERATORS = {}

STATUS = re.compile(r"(?:OLV|TWAMP)_STATUS_\w+$")
CONVERSION = re.compile(r"%[-0-9.*]*(?:lu|[a-zA-Z])")
BYTE_ORDER = {"hyx_htonl", "hyx_htons", "hyx_ntohl", "hyx_ntohs"}
CASTS = {"static_cast", "reinterpret_cast", "const_cast", "sizeof"}
NO_CALLEES = CASTS | BYTE_ORDER | {"if", "for", "while", "switch", "return"}

RELATIONS = {
    "==": ("!=", "<=", ">="),
    "!=": ("==", "<", ">"),
    "<": ("<=", "!=", ">="),
    "<=": ("<", "==", ">"),
    ">": (">=", "!=", "<="),
    ">=": (">", "==", "<"),
}
ARITHMETIC = {"&": "|", "|": "&", "<<": ">>", ">>": "<<", "+": "-", "-": "+", "*": "/", "/": "*"}
SEVERITIES = {
    "fatal": "error",
    "error": "info",
    "info": "error",
    "entry": "exit",
    "exit": "entry",
    "state_dump": "entry_learnt",
    "entry_learnt": "entry_removed",
    "entry_removed": "entry_learnt",
}


def operator(name):
    def enter(function):
        OPERATORS[name] = function
        return function

    return enter


def code(source, kind):
    """Positions and tokens of a kind that make code."""
    for position, token in enumerate(source.tokens):
        if token.kind == kind and position not in source.skipped:
            yield position, token


def replaced(token, text):
    return token.begin, token.end, text


@operator("status")
def change_statuses(source, project):
    for position, token in code(source, "name"):
        if STATUS.match(token.text) and source.in_code(position) and token.text in project.statuses:
            yield replaced(token, following(project.statuses, token.text))


@operator("constant")
def move_constants(source, project):
    """Bounds among them: one up, one down."""
    for position, token in code(source, "number"):
        yield from (replaced(token, text) for text in neighbours(token.text))
    for position, token in code(source, "name"):
        if token.text in project.numbers and source.in_code(position):
            yield from (replaced(token, f"({token.text} {step} 1)") for step in "+-")
        if token.text in ("true", "false"):
            yield replaced(token, "false" if token.text == "true" else "true")


def neighbours(number):
    """The texts of the numbers beside one; below 0 is none."""
    whole, rest = re.fullmatch(r"(0x[0-9A-Fa-f]+|\d+)(.*)", number).groups()
    value = int(whole, 0)
    for other in (value + 1, value - 1)[: 2 if value > 0 else 1]:
        yield (f"0x{other:X}" if whole.startswith("0x") else str(other)) + rest


@operator("bound")
def move_bounds(source, project):
    """What is compared with, unless it is a constant by itself."""
    for position, token in code(source, "mark"):
        if token.text not in RELATIONS or not source.is_binary(position):
            continue
        first, last = source.operands(position)[1]
        text = source.between(first, last)
        if not (text[0].isdigit() or text in project.numbers or text == "nullptr" or STATUS.match(text)):
            yield from ((*source.span(first, last), f"{text} {step} 1") for step in "+-")


@operator("mask")
def narrow_masks(source, project):
    """Masks and flags lose their lowest bit or their highest one."""
    for position, token in enumerate(source.tokens):
        mask = project.numbers.get(token.text, value_of(token.text))
        if not mask or not source.in_code(position):
            continue
        first = position - (source.word(position - 1) == "~")
        beside = {source.word(first - 1), source.word(position + 1)}
        if token.text.startswith("OLV_LOG_") or beside & {"&", "|"}:
            yield from narrowed(source.span(position, position), mask)
            if first < position:
                yield from narrowed(source.span(first, position), ~mask & 0xFFFFFFFF)


def narrowed(span, mask):
    for bit in sorted({mask & -mask, 1 << mask.bit_length() >> 1}):
        yield *span, f"0x{mask - bit:X}u"


@operator("relation")
def change_relations(source, _project):
    for position, token in code(source, "mark"):
        if token.text in RELATIONS and source.is_binary(position):
            yield from (replaced(token, other) for other in RELATIONS[token.text])


@operator("arithmetic")
def change_arithmetic(source, _project):
    for position, token in code(source, "mark"):
        if token.text in ARITHMETIC and source.is_binary(position):
            yield replaced(token, ARITHMETIC[token.text])
        elif token.text in ("~", "++"):
            yield replaced(token, "" if token.text == "~" else "--")


@operator("logic")
def exchange_and_or(source, _project):
    for position, token in code(source, "mark"):
        if token.text in ("&&", "||") and source.is_binary(position):
            yield replaced(token, "||" if token.text == "&&" else "&&")


@operator("dropped-operand")
def drop_operands(source, _project):
    for position, token in code(source, "mark"):
        if token.text not in RELATIONS and source.is_binary(position):
            left, right = source.operands(position)
            yield from ((*source.span(left[0], right[1]), source.between(*kept)) for kept in (left, right))


@operator("removed-not")
def remove_not(source, _project):
    for _, token in code(source, "mark"):
        if token.text == "!":
            yield replaced(token, "")


def conditions(source):
    """Of each `if`: the range of characters between its parentheses, their text, the name that it declares."""
    for block in source.blocks:
        for statement in block:
            if statement.header is None or source.word(statement.first) != "if":
                continue
            first, last = statement.header + 1, source.partner[statement.header] - 1
            declared = next((source.word(each - 1) for each in range(first, last) if source.word(each) == "="), None)
            yield *source.span(first, last), source.between(first, last), declared


@operator("negated-condition")
def negate_conditions(source, _project):
    for begin, end, text, declared in conditions(source):
        if declared is not None:
            yield begin, end, f"{text}; !{declared}"
        elif not re.fullmatch(r"[^&|]* (?:[=!<>]=|[<>]) [^&|]*", text):  # those get the opposite relation
            yield begin, end, f"!({text})"


@operator("condition-never")
def never(source, _project):
    for begin, end, text, declared in conditions(source):
        yield begin, end, f"{text}; false" if declared is not None else f"({text}) && false"


@operator("condition-always")
def always(source, _project):
    for begin, end, text, declared in conditions(source):
        yield begin, end, f"{text}; true" if declared is not None else f"({text}) || true"


@operator("exchanged-branches")
def exchange_branches(source, _project):
    for position, token in code(source, "mark"):
        if token.text != "?":
            continue
        middle = end = position
        while source.word(end) not in (";", ",", ")", "}"):
            if source.word(end) == ":":
                middle = end
            end = source.partner.get(end, end) + 1
        yield exchanged(source, (position + 1, middle - 1), (middle + 1, end - 1))


def exchanged(source, one, other):
    """Two ranges of tokens, each in the other's place."""
    gap = source.text[source.tokens[one[1]].end : source.tokens[other[0]].begin]
    return *source.span(one[0], other[1]), source.between(*other) + gap + source.between(*one)


def is_call(source, statement):
    """Whether a statement is a call and nothing else; its result may be cast away."""
    first = statement.first + (3 if source.word(statement.first + 1) == "void" else 0)
    return (
        statement.header is None
        and source.word(statement.last - 1) == ")"
        and source.word(statement.first) != "return"
        and re.fullmatch(r"[\w:.()>-]+", source.text[source.tokens[first].begin : source.tokens[first].end]) is not None
        and not re.match(r"[\w:]+ [*\w]", source.between(first, statement.last))
        and " = " not in source.between(first, statement.last)
    )


def removals(source, calls):
    for block in source.blocks:
        for statement in block:
            if is_call(source, statement) == calls:
                begin, end = source.span(statement.first, statement.last)
                yield begin, end, ";" + "\n" * source.text.count("\n", begin, end)


@operator("removed-call")
def remove_calls(source, _project):
    yield from removals(source, True)


@operator("removed-statement")
def remove_statements(source, _project):
    yield from removals(source, False)


@operator("swapped-statements")
def swap_statements(source, _project):
    """Both keep their line numbers, which the code holds where it logs. Without a call or a jump in one of them
    the order cannot be seen."""
    for block in source.blocks:
        for one, other in zip(block, block[1:]):
            begin, end = source.span(one.first, other.last)
            if not re.search(r"\w\(|\b(?:return|continue)\b", source.text[begin:end]):
                continue
            pieces = ((other.first, other.last), (one.first, one.last))
            text = "".join(f"\n#line {source.line_number(source.tokens[first].begin)}\n{source.between(first, last)}"
                           for first, last in pieces)
            yield begin, end, f"{text}\n#line {source.line_number(end)}\n"


def neighbouring_arguments(source):
    for opening in source.partner:
        if opening not in source.skipped and source.in_code(opening) and is_argument_list(source, opening):
            arguments = source.split(opening)
            yield from ((one, other) for one, other in zip(arguments, arguments[1:])
                        if source.between(*one) != source.between(*other))


@operator("swapped-arguments")
def swap_arguments(source, _project):
    yield from (exchanged(source, one, other) for one, other in neighbouring_arguments(source))


@operator("replaced-argument")
def replace_arguments(source, _project):
    """What is not of the neighbour's type does not compile."""
    for one, other in neighbouring_arguments(source):
        yield *source.span(*one), source.between(*other)
        yield *source.span(*other), source.between(*one)


def is_argument_list(source, opening):
    before = source.tokens[opening - 1] if opening > 0 else None
    if before is None or before.in_macro != source.tokens[opening].in_macro:
        return False
    if source.word(opening) == "(":
        return before.kind == "name" and before.text not in NO_CALLEES
    return source.word(opening) == "{" and ";" not in source.between(opening, source.partner[opening])


def part(token, begin, end, text):
    """A replacement of characters of a token."""
    return token.begin + begin, token.begin + end, text


def letters(literal):
    """Positions of the letters of a literal that are neither an escape's nor a conversion's."""
    plain = CONVERSION.sub(lambda match: "." * len(match.group()), literal)
    plain = re.sub(r"\\.", "..", plain)
    return [position for position, letter in enumerate(plain) if letter.isalpha()]


@operator("message-letter")
def change_letters(source, _project):
    for _, token in code(source, "string"):
        positions = letters(token.text)
        for position in sorted({positions[len(positions) // 3], positions[-1]} if positions else set()):
            yield part(token, position, position + 1, "y" if token.text[position] in "xX" else "x")


@operator("message-newline")
def change_newlines(source, _project):
    for position, token in code(source, "string"):
        yield from (part(token, *match.span(), "") for match in re.finditer(r"\\n", token.text))
        followed = position + 1 < len(source.tokens) and source.tokens[position + 1].kind == "string"
        if " " in token.text and not followed and not token.text.endswith('\\n"'):
            yield token.end - 1, token.end - 1, "\\n"


@operator("message-conversion")
def change_conversions(source, _project):
    for _, token in code(source, "string"):
        for match in CONVERSION.finditer(token.text):
            yield part(token, *match.span(), other_conversion(match.group()))


def other_conversion(conversion):
    kind = conversion[-1]
    if kind == "s":
        return conversion[:-1].replace("*", "") + ".3s" if "." not in conversion else "%s%.0s"
    if "0" in conversion:
        return conversion.replace("0", "", 1)
    return conversion[:-1] + {"d": "x", "x": "d", "X": "x", "u": "x"}[kind]


@operator("byte-order")
def remove_byte_order(source, _project):
    for position, token in code(source, "name"):
        if token.text in BYTE_ORDER and source.word(position + 1) == "(":
            yield replaced(token, "")


@operator("exchanged-field")
def exchange_fields(source, project):
    for position, token in code(source, "name"):
        if source.word(position - 1) in (".", "->") and source.word(position + 1) != "(":
            for other in sorted(project.fields.get(token.text, ())):
                yield replaced(token, other)


@operator("exchanged-name")
def exchange_names(source, project):
    for position, token in code(source, "name"):
        if not source.in_code(position):
            continue
        other = project.constants.get(token.text)
        if source.word(position - 1) == "::" and source.word(position - 2) != "severity":
            other = project.enumerators.get(f"{source.word(position - 2)}::{token.text}")
        if other is not None:
            yield replaced(token, other)


@operator("severity")
def change_severities(source, _project):
    for position, token in code(source, "name"):
        before, macro = source.word(position - 1), source.word(position - 2)
        named = before == "::" and macro == "severity" and token.text in SEVERITIES
        here = before == "(" and macro == "TWAMP_HERE"
        told = before == "," and any(
            source.word(opening) == "(" and source.word(opening - 1) in ("TWAMP_LOG", "TWAMP_FAIL")
            for opening in range(position - 12, position)
            if opening in source.partner and source.partner[opening] > position
        )
        if token.text in SEVERITIES and (named or here or told):
            yield replaced(token, SEVERITIES[token.text])


@operator("returned-success")
def return_success(source, _project):
    for block in source.blocks:
        for statement in block:
            first, last = statement.first + 1, statement.last - 1
            if source.word(statement.first) != "return" or first > last:
                continue
            text = source.between(first, last)
            if text != "OLV_STATUS_OK" and not text.startswith("{"):
                yield *source.span(first, last), f"(static_cast<void>({text}), 0)"
