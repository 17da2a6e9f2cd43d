"""What the mutation operators know of all files together."""
import re


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
        self.numbers = {}  # name of a number that the C headers define -> its value
        for name, digits in re.findall(r"^#define (\w+) (\(?~?\w+\)?)$", text, re.MULTILINE):
            if (value := value_of(digits)) is not None:
                self.numbers[name] = value
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
            families.setdefault(kind, []).append(name)
        for name in re.findall(r'^#define (\w+) "', text, re.MULTILINE):
            families.setdefault(name.rsplit("_", 1)[-1], []).append(name)
        for names in families.values():
            self.constants.update((name, following(names, name)) for name in names if len(names) > 1)


def value_of(number):
    """The value of the text of a number, which may be complemented; nothing for other texts."""
    match = re.fullmatch(r"\(?(~?)(0x[0-9A-Fa-f]+|\d+)[uU]?\)?", number)
    if match is None:
        return None
    value = int(match.group(2), 0)
    return ~value & 0xFFFFFFFF if match.group(1) else value


def following(names, name):
    return names[(names.index(name) + 1) % len(names)]
