"""Reads Callgrind's dumps, made with --compress-strings=no --compress-pos=no."""
import collections
import re

COMPRESSED = re.compile(r"(c?fn=|c?ob=)\(\d+\)|[+\-*]")
REQUEST = "desc: Trigger: Client Request: "


def request_of(dump):
    """The name that a dump was asked for with."""
    for line in dump.splitlines():
        if line.startswith(REQUEST):
            return line[len(REQUEST) :]
    raise ValueError("no client request asked for this dump")


def costs(dump):
    """Of each line with a cost: its function, the function called (None: the cost is its own), the cost. A function
    is the name of its object and its own."""
    caller_object = callee_object = function = ""
    callee = None
    for line in dump.splitlines():
        key, _, value = line.partition("=")
        if COMPRESSED.match(line):
            raise ValueError(f"a compressed dump: {line}")
        if key == "ob":
            caller_object = callee_object = value
        elif key == "fn":
            function = value
        elif key == "cob":
            callee_object = value
        elif key == "cfn":
            callee = (callee_object, value)
        elif line[:1].isdigit():
            yield (caller_object, function), callee, int(line.split()[1])
            callee_object, callee = caller_object, None


def own_costs(dump):
    """Cost of each function alone, by its name."""
    own = collections.Counter()
    for (_, function), callee, cost in costs(dump):
        if callee is None:
            own[function] += cost
    return own
