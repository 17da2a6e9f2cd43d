"""The mutation operators: each takes a source and yields replacements of a range of its text.

An operator is a function (source, project) -> iterator of (begin, end, replacement), entered in OPERATORS under the
name that reports show.
"""
import re

OPERATORS = {}

STATUS = re.compile(r"(?:OLV|TWAMP)_STATUS_\w+$")
PLATFORM_CONSTANT = re.compile(r"OLV_(?:LOG|MODULE|BIND|TWAMP_TABLE)_\w+$")
CONVERSION = re.compile(r"%[-0-9.*]*(?:lu|[a-zA-Z])")
BYTE_ORDER = {"hyx_htonl", "hyx_htons", "hyx_ntohl", "hyx_ntohs"}
CASTS = {"static_cast", "reinterpret_cast", "const_cast", "sizeof"}
NO_CALLEES = CASTS | BYTE_ORDER | {"if", "for", "while", "switch", "return"}
PURE = CASTS | {"address_word", "as_module_status", "ntp_fraction", "TWAMP_HERE"}  # leave nothing to be seen

COMPARISONS = {"==": "!=", "!=": "==", "<": "<=", "<=": "<", ">": ">=", ">=": ">"}
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


class Project:
    """What operators know of all files together: statuses, records, enumerations, named constants."""

    def __init__(self, texts):
        text = re.sub(r"//[^\n]*|/\*.*?\*/", "", "\n".join(texts), flags=re.DOTALL)
        self.statuses = re.findall(r"^ +((?:OLV|TWAMP)_STATUS_\w+) =", text, re.MULTILINE)
        self.fields = {}  # name of a field -> set of fields of the same type in a record
        for body in re.findall(r"struct \w+ \{\n(.*?)\n\}", text, re.DOTALL):
            self._read_fields(body)
        self.enumerators = {}  # "type::name" -> the next name of the type
        for name, body in re.findall(r"enum class (\w+)[^{;]*\{([^}]*)\}", text):
            names = re.findall(r"\w+", body)
            self.enumerators.update((f"{name}::{each}", following(names, each)) for each in names)
        self.constants = {}  # name of a constant -> the next one of its type and kind
        self._read_constants(text)

    def _read_fields(self, body):
        by_type = {}
        for kind, name in re.findall(r"^ +((?:const )?[\w:]+ \*?)(\w+);", body, re.MULTILINE):
            if not name.startswith("reserved"):
                by_type.setdefault(kind, []).append(name)
        for names in by_type.values():
            for name in names if len(names) > 1 else []:
                self.fields.setdefault(name, set()).add(following(names, name))

    def _read_constants(self, text):
        families = {}
        for kind, name in re.findall(r"^inline constexpr ([\w ]+ \*?)(\w+) =", text, re.MULTILINE):
            family = (kind, name.rsplit("_", 1)[-1] if "*" in kind else "")
            families.setdefault(family, []).append(name)
        for names in families.values():
            self.constants.update((name, following(names, name)) for name in names if len(names) > 1)


def following(names, name):
    return names[(names.index(name) + 1) % len(names)]


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
def change_constants(source, _project):
    for _, token in code(source, "number"):
        yield replaced(token, increased(token.text))
    for position, token in code(source, "name"):
        if PLATFORM_CONSTANT.match(token.text) and source.in_code(position):
            yield replaced(token, f"({token.text} + 1)")
        if token.text in ("true", "false"):
            yield replaced(token, "false" if token.text == "true" else "true")


def increased(number):
    integer = re.fullmatch(r"(0x)?([0-9A-Fa-f]+?)([uUlL]*)", number)
    if integer is None:
        whole, rest = re.fullmatch(r"(\d+)(.*)", number).groups()
        return f"{int(whole) + 1}{rest}"
    prefix, digits, suffix = integer.groups()
    return f"0x{int(digits, 16) + 1:X}{suffix}" if prefix else f"{int(digits) + 1}{suffix}"


@operator("comparison")
def change_comparisons(source, _project):
    for position, token in code(source, "mark"):
        if token.text in COMPARISONS and source.spaced(position):
            yield replaced(token, COMPARISONS[token.text])


@operator("arithmetic")
def change_arithmetic(source, _project):
    for position, token in code(source, "mark"):
        if token.text in ARITHMETIC and source.spaced(position):
            yield replaced(token, ARITHMETIC[token.text])
        elif token.text in ("~", "++"):
            yield replaced(token, "" if token.text == "~" else "--")


@operator("logic")
def exchange_and_or(source, _project):
    for position, token in code(source, "mark"):
        if token.text in ("&&", "||") and source.spaced(position):
            yield replaced(token, "||" if token.text == "&&" else "&&")


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
            yield source.tokens[first].begin, source.tokens[last].end, source.between(first, last), declared


@operator("negated-condition")
def negate_conditions(source, _project):
    for begin, end, text, declared in conditions(source):
        if declared is not None:
            yield begin, end, f"{text}; !{declared}"
        elif not re.fullmatch(r"[^&|]* [=!]= [^&|]*", text):  # those are exchanged as comparisons
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
        yes, no = source.between(position + 1, middle - 1), source.between(middle + 1, end - 1)
        yield source.tokens[position + 1].begin, source.tokens[end - 1].end, f"{no} : {yes}"


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
                begin, end = source.tokens[statement.first].begin, source.tokens[statement.last].end
                yield begin, end, ";" + "\n" * source.text.count("\n", begin, end)


@operator("removed-call")
def remove_calls(source, _project):
    yield from removals(source, True)


@operator("removed-statement")
def remove_statements(source, _project):
    yield from removals(source, False)


def can_be_seen(source, statement):
    """Whether a statement calls something or leaves: the order of others cannot be told from outside."""
    return any(
        source.word(each) in ("return", "continue")
        or (source.tokens[each].kind == "name" and source.word(each + 1) == "(" and source.word(each) not in PURE)
        for each in range(statement.first, statement.last)
    )


@operator("swapped-statements")
def swap_statements(source, _project):
    for block in source.blocks:
        for one, other in zip(block, block[1:]):
            if not can_be_seen(source, one) and not can_be_seen(source, other):
                continue
            gap = source.text[source.tokens[one.last].end : source.tokens[other.first].begin]
            swapped = source.between(other.first, other.last) + gap + source.between(one.first, one.last)
            yield source.tokens[one.first].begin, source.tokens[other.last].end, swapped


@operator("swapped-arguments")
def swap_arguments(source, _project):
    for opening in source.partner:
        if opening in source.skipped or not source.in_code(opening) or not is_argument_list(source, opening):
            continue
        arguments = source.split(opening)
        for one, other in zip(arguments, arguments[1:]):
            left, right = source.between(*one), source.between(*other)
            if left != right:
                gap = source.text[source.tokens[one[1]].end : source.tokens[other[0]].begin]
                yield source.tokens[one[0]].begin, source.tokens[other[1]].end, right + gap + left


def is_argument_list(source, opening):
    before = source.tokens[opening - 1] if opening > 0 else None
    if before is None or before.in_macro != source.tokens[opening].in_macro:
        return False
    if source.word(opening) == "(":
        return before.kind == "name" and before.text not in NO_CALLEES
    return source.word(opening) == "{" and ";" not in source.between(opening, source.partner[opening])


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
            other = "y" if token.text[position] in "xX" else "x"
            yield replaced(token, token.text[:position] + other + token.text[position + 1 :])


@operator("message-newline")
def change_newlines(source, _project):
    for position, token in code(source, "string"):
        for match in re.finditer(r"\\n", token.text):
            yield replaced(token, token.text[: match.start()] + token.text[match.end() :])
        followed = position + 1 < len(source.tokens) and source.tokens[position + 1].kind == "string"
        if " " in token.text and not followed and not token.text.endswith('\\n"'):
            yield replaced(token, token.text[:-1] + '\\n"')


@operator("message-conversion")
def change_conversions(source, _project):
    for _, token in code(source, "string"):
        for match in CONVERSION.finditer(token.text):
            other = other_conversion(match.group())
            yield replaced(token, token.text[: match.start()] + other + token.text[match.end() :])


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
                begin, end = source.tokens[first].begin, source.tokens[last].end
                yield begin, end, f"(static_cast<void>({text}), 0)"
