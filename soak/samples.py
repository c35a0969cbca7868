"""What the reference check collects: the benchmark's results, cut where they are large, and what no walk gets to the end
of. SAMPLES maps a name to a function that returns the result of one collection, or the exception that it shall raise.
"""

import results
import shapes

LENGTH = 40


def cut(value):
    return value[:LENGTH] if isinstance(value, list) else dict(list(value.items())[:LENGTH])


SAMPLES = {
    **{name: lambda value=cut(build()): value for name, build in shapes.SHAPES.items() if name not in shapes.FRESH},
    **{name: lambda build=shapes.SHAPES[name]: cut(build()) for name in sorted(shapes.FRESH)},
    "made anew": lambda: [{"a": [1.5, str(2.5)], "b": {"c": {}}, str(7): 2**70}],
    "empty": dict,
    "a list in a list": lambda: [{"a": 1}, [2**70]],
    "an exception": lambda: ValueError("meant"),
    "no list or dictionary": lambda: None,
    "an unsupported value": lambda: {"a": [2**70, (1, 2)]},
    "a circular result": lambda: [{"a": results.ring}],
    "a text without UTF-8": lambda: {"a": "\ud800" * 2},
    "a key without UTF-8": lambda: {"a": {"\udfff" * 2: 1}},
    "a key that is no text": lambda: {"a": {(1, 2): 1}},
}
