"""The results that the benchmark collects: what scripts return, from the everyday to the extreme.

SHAPES maps a name to a builder. A builder is called once. The builders in FRESH are called before each collection, so
that all keys are new to the plug-in.
"""

import itertools

_fresh = itertools.count()


def metrics(count):
    """A dictionary with `count` keys."""
    return {"metric_%d" % i: i * 1.5 if i % 2 else i for i in range(count)}


def nested(depth):
    """Dictionaries nested `depth` levels deep, with a small list in each."""
    value = {"leaf": 1}
    for level in range(depth):
        value = {"level": level, "items": [level, level + 1], "child": value}
    return value


def one_key_each(prefix):
    """Dictionaries with five keys: one that no other dictionary has, and four that all have."""
    return [{prefix + str(i): i, "name": "eth0", "up": True, "rx": i, "tx": 2 * i} for i in range(2000)]


SHAPES = {
    "50 flat metrics": lambda: metrics(50),
    "1,000 dicts of 20 keys": lambda: [metrics(20) for _ in range(1000)],
    "1,000 long texts": lambda: ["%d " % i + "long text " * 100 for i in range(1000)],
    "300 levels deep": lambda: nested(300),
    "100,000 integers": lambda: list(range(100000)),
    "20,000 distinct keys": lambda: metrics(20000),
    "2,000 dicts, one key each own": lambda: one_key_each("own_"),
    "the same, keys never met": lambda: one_key_each("new_%d_" % next(_fresh)),
}
FRESH = {"the same, keys never met"}


# Results of growing size, which show how the time per token changes. The number in the name is the size.
GROWTH = {
    **{"tokens %d" % n: lambda n=n: list(range(n)) for n in (10**3, 10**4, 10**5, 10**6, 10**7)},
    **{"keys %d" % n: lambda n=n: metrics(n) for n in (10, 10**2, 10**3, 10**4, 10**5, 10**6)},
    **{"depth %d" % n: lambda n=n: nested(n) for n in (10, 10**2, 10**3, 10**4, 10**5)},
}

# What the next collection returns.
current = None


def collect(_args):
    return current
