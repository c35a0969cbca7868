"""The check of a result: everything in it that the event stream cannot carry, with its place.

Runs in the plug-in's interpreter, for "rubruf-host check".
"""

_ABSENT = object()
_LISTED = 20  # findings of a kind that are reported; more are counted
_TAIL = 6  # steps at the end of a place by which repeated faults are told
_REMEDIES = {
    "NoneType": "leave it out, or give a value that stands for it",
    "bytes": "decode it to str",
    "bytearray": "decode it to str",
    "tuple": "make it a list",
    "set": "make it a list",
    "frozenset": "make it a list",
    "Decimal": "make it a float or a str",
}

_key_texts = {}  # the text up to the first zero character, by which keys are numbered -> the first such key


class Place:
    """A value's place in a result: the container's place, and the key or index there."""

    __slots__ = ("above", "in_dict", "step", "depth")

    def __init__(self, above, in_dict, step):
        self.above = above
        self.in_dict = in_dict
        self.step = step
        self.depth = above.depth + 1 if above else 1

    def tail(self):
        """The last steps, from the last one on."""
        steps = []
        node = self
        while node is not None and len(steps) < _TAIL:
            steps.append((node.in_dict, node.step))
            node = node.above
        return steps

    def text(self, items):
        """disks[3].name; disks[0..3].name where `items` has a first and a last index for a step from the end."""
        steps = []
        node = self
        while node is not None:
            first, last = items.get(len(steps), (None, None))
            if first != last:
                steps.append("[%d..%d]" % (first, last))
            else:
                plain = node.in_dict and _is(node.step, str) and str.isidentifier(node.step)
                steps.append("." + str.__str__(node.step) if plain else "[%s]" % shown(node.step))
            node = node.above
        path = "".join(reversed(steps)).lstrip(".")
        return path if len(path) <= 200 else path[:100] + "..." + path[-97:]


class _Group:
    """Faults of one kind in items of the same lists: the first one, and the items in which the others are."""

    def __init__(self, place, message):
        self.place = place
        self.message = message
        self.count = 0
        self.items = {}  # how many steps from the end -> the first and the last index there

    def add(self, tail):
        self.count += 1
        for i, (in_dict, step) in enumerate(tail):
            if not in_dict:
                first, last = self.items.get(i, (step, step))
                self.items[i] = (min(first, step), max(last, step))

    def text(self):
        place = self.place.text(self.items) if isinstance(self.place, Place) else self.place
        times = ", {:,} times".format(self.count) if self.count > 1 else ""
        return "%s: %s%s" % (place or "the result", self.message, times)


class Findings:
    """Errors and warnings: of each the count and the first ones, those that repeat each other as one.

    A place is a Place, a text, or None for the result itself.
    """

    def __init__(self, tolerant=False):
        self.tolerant = tolerant
        self.seconds = 0.0
        self.counts = {"errors": 0, "warnings": 0}
        self.groups = {"errors": {}, "warnings": {}}

    def error(self, place, message, fault=None):
        """`fault` makes one group of messages that differ; without it the same ones are."""
        self._add("errors", place, message, fault)

    def warning(self, place, message, fault=None):
        self._add("warnings", place, message, fault)

    def obstacle(self, place, what, remedy, fault=None, left_out="it"):
        """A key or value that stops the collection; the plug-in leaves it out if the script is tolerant."""
        if self.tolerant:
            self.warning(place, "%s: %s is left out" % (what, left_out), fault)
        else:
            self.error(place, "%s: %s" % (what, remedy), fault)

    def plain(self):
        """Of each kind the count, the texts, and the count of those without a text."""
        answer = {"seconds": self.seconds}
        for kind, count in self.counts.items():
            groups = self.groups[kind].values()
            texts = [group.text().encode("utf-8", "backslashreplace").decode("utf-8") for group in groups]
            answer[kind] = [count, texts, count - sum(group.count for group in groups)]
        return answer

    def _add(self, kind, place, message, fault):
        self.counts[kind] += 1
        tail = place.tail() if isinstance(place, Place) else []
        shape = tuple(str.__str__(step) if in_dict and _is(step, str) else None for in_dict, step in tail)
        key = (fault or message, place.depth, shape) if tail else (fault or message, place)
        groups = self.groups[kind]
        if key not in groups:
            if len(groups) >= _LISTED:
                return
            groups[key] = _Group(place, message)
        groups[key].add(tail)


def check(result, findings):
    """Finds everything in `result` that the event stream cannot carry. Deep results need no deep stack."""
    if not _is(result, (list, dict)):
        findings.error(None, "%s: return a list or dictionary" % _unsupported(result))
        return
    walk = [(result, _entries(result), None)]
    open_ids = {id(result)}
    while walk:
        container, entries, place = walk[-1]
        step, value = next(entries, (_ABSENT, None))
        if step is _ABSENT:
            walk.pop()
            open_ids.discard(id(container))
            continue
        in_dict = _is(container, dict)
        here = Place(place, in_dict, step)
        if in_dict and not _check_key(step, place, findings) and findings.tolerant:
            continue
        if not _is(value, (list, dict)):
            _check_scalar(value, here, findings)
            continue
        if not in_dict and _is(value, list):
            findings.obstacle(here, "a list in a list", "it ends the stream, wrap the inner list in a dictionary")
            if findings.tolerant:
                continue
        if id(value) in open_ids:
            findings.obstacle(here, "circular reference", "a list or dictionary that holds itself never ends")
            continue
        open_ids.add(id(value))
        walk.append((value, _entries(value), here))


def shown(value):
    """A value in a message. Only types whose repr runs no code of the script."""
    if _is(value, str):
        text = ascii(str.__str__(value)[:60])
        return text if str.__len__(value) <= 60 else text + "..."
    if type(value) in (float, bool, type(None)) or type(value) is int and value.bit_length() <= 64:
        return repr(value)
    return "of type " + type(value).__name__


def _check_scalar(value, here, findings):
    if _is(value, str):
        if not _encodable(value):
            findings.obstacle(here, "the text %s has no UTF-8 form" % shown(value), "remove its surrogates", "text")
    elif _is(value, int):  # bool is one
        if not -(2**63) <= int.__int__(value) < 2**63:
            effect = "it is left out" if findings.tolerant else "it is written as -1, make it a float or a str"
            findings.warning(here, "an integer of more than 64 bits: " + effect)
    elif not _is(value, float):
        findings.obstacle(here, _unsupported(value), _remedy(type(value)))


def _check_key(key, place, findings):
    """True if the key can be sent."""
    if not _is(key, str):
        findings.obstacle(place, "the key %s is not text" % shown(key), "make it a str", "key", "its entry")
        return False
    if not _encodable(key):
        what = "the key %s has no UTF-8 form" % shown(key)
        findings.obstacle(place, what, "remove its surrogates", "key's text", "its entry")
        return False
    key = str.__str__(key)
    first = _key_texts.setdefault(key.split("\0", 1)[0], key)
    if first != key:
        message = "the keys %s and %s share one ID, as texts end at a zero character: remove it"
        findings.warning(place, message % (shown(first), shown(key)))
    return True


def _remedy(type_):
    name = type_.__name__
    if str(type.__getattribute__(type_, "__module__")).partition(".")[0] == "numpy":
        return "call its .tolist()" if name == "ndarray" else "call its .item()"
    return _REMEDIES.get(name, "make it a str, int, float, bool, list or dict")


def _is(value, types_):
    """What the plug-in asks: the real type, whatever the object says of its class."""
    return issubclass(type(value), types_)


def _entries(container):
    return iter(dict.items(container)) if _is(container, dict) else enumerate(list.__iter__(container))


def _encodable(text):
    try:
        str.encode(text, "utf-8")
    except UnicodeEncodeError:
        return False
    return True


def _unsupported(value):
    return "None is not supported" if value is None else "the type %s is not supported" % type(value).__name__
