"""Checks scripts and what they return for "rubruf-host check", which runs this module in the plug-in's interpreter.

bind() imports each script as the plug-in does and puts a watch on its function, which the plug-in then takes for the
function. The watch checks each result and keeps a faulty one from the plug-in, which would be stuck at it.
"""

import gc
import importlib
import json
import os
import re
import sys
import threading
import time
import types
import weakref
from importlib.machinery import PathFinder

LISTED = 20  # findings of a kind that are reported; more are counted
PATIENCE = 1  # seconds that a thread has to end

_START = os.getcwd()  # what relative paths start from, wherever a script goes

_ABSENT = object()
_REMEDIES = {
    "NoneType": "leave it out, or give a value that stands for it",
    "bytes": "decode it to str",
    "bytearray": "decode it to str",
    "tuple": "make it a list",
    "set": "make it a list",
    "frozenset": "make it a list",
    "Decimal": "make it a float or a str",
}

# Python keeps names of attributes that it has found: memory of its own, which may grow for hundreds of collections.
_clear_caches = getattr(sys, "_clear_internal_caches", None) or getattr(sys, "_clear_type_cache", lambda: None)

_scripts = []  # a Script each, in the order of bind()
_last = None  # the Findings of the last collection
_threads = weakref.WeakKeyDictionary()  # a thread -> the Script at whose work it was seen first
_displaced = []  # (mapping, key, value before) of what bind() has put in place
_key_texts = {}  # the text up to the first zero character, by which keys are numbered -> the first such key


class Findings:
    """Errors and warnings: of each, the count and the first texts."""

    def __init__(self):
        self.seconds = 0.0
        self.found = {"errors": [0, []], "warnings": [0, []]}

    def add(self, kind, place, message):
        entry = self.found[kind]
        entry[0] += 1
        if entry[0] <= LISTED:
            text = "%s: %s" % (place() if callable(place) else place, message)
            entry[1].append(text.encode("utf-8", "backslashreplace").decode("utf-8"))

    def error(self, place, message):
        self.add("errors", place, message)

    def warning(self, place, message):
        self.add("warnings", place, message)

    def plain(self):
        return dict(self.found, seconds=self.seconds)


def check(result, findings):
    """Finds everything in `result` that the event stream cannot carry. Deep results need no deep stack."""
    if not _is(result, (list, dict)):
        findings.error("the result", "%s: return a list or dictionary" % _unsupported(result))
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
        here = (place, in_dict, step)
        if in_dict:
            _check_key(step, place, findings)
        if not _is(value, (list, dict)):
            _check_scalar(value, here, findings)
            continue
        if not in_dict and _is(value, list):
            findings.error(_path(here), "a list in a list ends the stream: wrap the inner list in a dictionary")
        if id(value) in open_ids:
            findings.error(_path(here), "circular reference: a list or dictionary that holds itself never ends")
            continue
        open_ids.add(id(value))
        walk.append((value, _entries(value), here))


def _check_scalar(value, here, findings):
    if _is(value, str):
        if not _encodable(value):
            findings.error(_path(here), "the text %s has no UTF-8 form: remove its surrogates" % _shown(value))
    elif _is(value, int):  # bool is one
        if not -(2**63) <= int.__int__(value) < 2**63:
            findings.warning(_path(here), "an integer of more than 64 bits is written as -1: make it a float or a str")
    elif not _is(value, float):
        remedy = _REMEDIES.get(type(value).__name__, "make it a str, int, float, bool, list or dict")
        findings.error(_path(here), "%s: %s" % (_unsupported(value), remedy))


def _check_key(key, place, findings):
    if not _is(key, str):
        findings.error(_path(place), "the key %s is not text: make it a str" % _shown(key))
    elif not _encodable(key):
        findings.error(_path(place), "the key %s has no UTF-8 form: remove its surrogates" % _shown(key))
    else:
        key = str.__str__(key)
        first = _key_texts.setdefault(key.split("\0", 1)[0], key)
        if first != key:
            message = "the keys %s and %s share one ID, as texts end at a zero character: remove it"
            findings.warning(_path(place), message % (_shown(first), _shown(key)))


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


def _shown(value):
    """A value in a message. Only types whose repr runs no code of the script."""
    if _is(value, str):
        text = ascii(str.__str__(value)[:60])
        return text if str.__len__(value) <= 60 else text + "..."
    if type(value) in (float, bool, type(None)) or type(value) is int and value.bit_length() <= 64:
        return repr(value)
    return "of type " + type(value).__name__


def _unsupported(value):
    return "None is not supported" if value is None else "the type %s is not supported" % type(value).__name__


def _path(place):
    """A function that says where `place` is: disks[3].name. Called only for what is listed."""

    def text():
        steps = []
        node = place
        while node is not None:
            node, in_dict, step = node
            plain = in_dict and _is(step, str) and str.isidentifier(step)
            steps.append("." + str.__str__(step) if plain else "[%s]" % _shown(step))
        path = "".join(reversed(steps)).lstrip(".") or "the result"
        return path if len(path) <= 200 else path[:100] + "..." + path[-97:]

    return text


class Watch:
    """Stands for a script's function."""

    def __init__(self, function, script):
        self.function = function
        self.script = script

    def __call__(self, arguments):
        global _last
        _last = findings = Findings()
        result = None
        start = time.perf_counter()
        try:
            result = self.function(arguments)
            findings.seconds = time.perf_counter() - start
        except BaseException as error:
            findings.seconds = time.perf_counter() - start
            findings.error(*_cause(error, self.script.path))
            return []
        finally:
            self.script.note_threads()
        check(result, findings)
        return [] if findings.found["errors"][0] else result


def _cause(error, path):
    """The place in the script where `error` was raised, and what it says."""
    line, function = None, None
    trace = error.__traceback__
    while trace is not None:
        code = trace.tb_frame.f_code
        if _same_file(code.co_filename, path):
            line, function = trace.tb_lineno, code.co_name
        trace = trace.tb_next
    text = _text(error)
    if isinstance(error, SyntaxError) and error.filename and _same_file(error.filename, path):
        line, text = error.lineno, error.msg
    place = path + (":%d" % line if line else "") + (", in " + function if function else "")
    message = type(error).__name__ + (": " + text if text else "")
    if isinstance(error, SystemExit):
        message += " ends the host's process: leave with return, or raise another exception"
    return place, message


def _text(error):
    try:
        return " ".join(str(error).split())
    except Exception:
        return "its text cannot be had"


class _Stub(types.ModuleType):
    """Stands for a script that cannot be imported."""


class Script:
    """A configured script, and what is wrong with it before it is called."""

    def __init__(self, path, function_name):
        self.path = path
        self.function_name = function_name
        self.name = os.path.basename(path)[:-3]
        self.findings = Findings()

    def bind(self):
        if not self.name or not self.path.endswith(".py"):
            self.findings.error(self.path, "the name of a script ends in .py: rename the file")
            return
        module = self.load()
        if module is None:
            return
        self.check_file(module)
        names = vars(module)
        function = names.get(self.function_name, _ABSENT)
        if function is _ABSENT:
            _put(names, self.function_name, _ABSENT)
        if self.findings.found["errors"][0]:
            return
        if function is _ABSENT:
            message = "there is no function %s: define it, or name the one to call" % self.function_name
            self.findings.error(self.path, message)
        elif not callable(function):
            self.findings.error(self.path, "%s is not a function" % self.function_name)
        elif not _is(function, Watch):
            _put(names, self.function_name, Watch(function, self))
            self.watch_answer(names, "get_tag", "the tag is made from the path")
            self.watch_answer(names, "get_app_id", "it gives no application ID")

    def load(self):
        """Imports the script. Where that fails, an empty module takes its place, for the plug-in to go on."""
        sys.path.append(os.path.dirname(self.path) or ".")
        if isinstance(sys.modules.get(self.name), _Stub):
            del sys.modules[self.name]
        try:
            return importlib.import_module(self.name)
        except BaseException as error:
            if not self.is_file():
                self.findings.error(self.path, "there is no such file")
            elif isinstance(error, ModuleNotFoundError) and "." in self.name:
                message = "%s: a name with a dot is that of a module in a package: rename the file"
                self.findings.error(self.path, message % _text(error))
            else:
                self.findings.error(*_cause(error, self.path))
            stub = _Stub(self.name)
            setattr(stub, self.function_name, _ABSENT)
            _put(sys.modules, self.name, stub)
            package = self.name.partition(".")[0]  # which the plug-in's import asks for as well
            if package not in sys.modules:
                _put(sys.modules, package, stub)
            return None
        finally:
            self.note_threads()

    def is_file(self):
        return os.path.isfile(os.path.join(_START, self.path))

    def note_threads(self):
        for thread in threading.enumerate():
            _threads.setdefault(thread, self)

    def check_file(self, module):
        """Whether the module is this script, and none but this script."""
        file = getattr(module, "__file__", None) or "a built-in module"
        is_this = _same_file(file, self.path)
        if _in_standard_library(self.name):
            what = "hides the standard library's module from every script" if is_this else "is never imported"
            self.findings.error(self.path, "has the name of a standard-library module and %s: rename the file" % what)
        elif not self.is_file():
            self.findings.error(self.path, "there is no such file")
        elif not is_this:
            message = "importing %s gives %s: files of one name share a module, rename one of them"
            self.findings.error(self.path, message % (self.name, file))

    def watch_answer(self, names, asked, consequence):
        """The plug-in asks through `asked` and takes no notice of an exception."""
        function = names.get(asked)
        if function is None:
            return

        def answer():
            try:
                text = function()
            except BaseException as error:
                place, message = _cause(error, self.path)
                self.findings.warning(place, "%s: %s" % (message, consequence))
                raise
            if type(text) is not str:
                self.findings.warning(self.path, "%s returns no str: %s" % (asked, consequence))
            elif asked == "get_app_id" and text and not re.fullmatch("-*([0-9a-fA-F]-*){32}", text):
                message = "get_app_id returns %s: an ID has 32 hexadecimal digits, and nothing starts without one"
                self.findings.error(self.path, message % _shown(text))
            return text

        _put(names, asked, answer)


def _put(mapping, key, value):
    _displaced.append((mapping, key, mapping.get(key, _ABSENT)))
    mapping[key] = value


def _same_file(a, b):
    return os.path.realpath(os.path.join(_START, a)) == os.path.realpath(os.path.join(_START, b))


def _in_standard_library(name):
    if name in sys.builtin_module_names:
        return True
    library = os.path.dirname(os.__file__)
    spec = PathFinder.find_spec(name, [library, os.path.join(library, "lib-dynload")])
    return spec is not None and spec.loader is not None


def call(function, text):
    """The entry: calls bind, release, take, memory or threads."""
    return globals()[function](text)


def bind(request):
    """Binds the script of {"path": ..., "function": ...}; to be called for each one, before the plug-in binds them."""
    wanted = json.loads(request)
    script = Script(wanted["path"], wanted["function"])
    _scripts.append(script)
    script.bind()
    return ""


def release(_):
    """Gives the scripts their names back, once the plug-in has bound them. Returns the findings for each script."""
    while _displaced:
        mapping, key, value = _displaced.pop()
        if value is _ABSENT:
            mapping.pop(key, None)
        else:
            mapping[key] = value
    return json.dumps([script.findings.plain() for script in _scripts])


def take(_):
    """The findings of the last collection, once."""
    global _last
    findings, _last = _last, None
    return json.dumps(findings and findings.plain())


def memory(_):
    """What is in use without garbage and Python's own caches: interpreter blocks, and bytes of resident memory."""
    if gc.isenabled():
        gc.collect()
    _clear_caches()
    blocks = sys.getallocatedblocks()
    with open("/proc/self/smaps_rollup", "rb") as rollup:
        resident = next(int(line.split()[1]) * 1024 for line in rollup if line.startswith(b"Rss:"))
    return json.dumps([blocks, resident])


def threads(_):
    """The findings for each script about threads of its that do not end."""
    for script in _scripts:
        script.findings = Findings()
    deadline = time.monotonic() + PATIENCE
    # Those of a pool wait for work, and are ended with the interpreter.
    pooled = getattr(sys.modules.get("concurrent.futures.thread"), "_threads_queues", ())
    for thread, script in list(_threads.items()):
        if thread.daemon or thread is threading.main_thread() or thread in pooled:
            continue
        thread.join(max(0, deadline - time.monotonic()))
        if thread.is_alive():
            message = "the thread %s does not end, and the host waits for that in finalize: make it a daemon thread"
            script.findings.error(script.path, message % _shown(thread.name))
    return json.dumps([script.findings.plain() for script in _scripts])
