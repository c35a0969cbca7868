"""The check of a script: imports it as the plug-in does, and wraps its function in a Watch.

Runs in the plug-in's interpreter, for "rubruf-host check". The plug-in takes the watch for the function. The watch
checks each result and keeps a faulty one from the plug-in, which would be stuck at it.
"""

import importlib.util
import os
import re
import sys
import threading
import time
import types
import weakref
from importlib.machinery import PathFinder

from rubruf_checker.own_module import hand_out, load_own, loaded_spec
from rubruf_checker.result import Findings, check, shown

_ABSENT = object()
_START = os.getcwd()  # relative paths start here, even after a script has changed the directory

threads_of = weakref.WeakKeyDictionary()  # thread -> the Script during whose import or call it was seen first

_last = None  # the Findings of the last collection
_displaced = []  # (mapping, key, previous value) of everything that bind() has replaced


def take():
    """The findings of the last collection, once."""
    global _last
    findings, _last = _last, None
    return findings


def put_back():
    """Restores what bind() has replaced. Called after the plug-in has bound the scripts."""
    while _displaced:
        mapping, key, value = _displaced.pop()
        if value is _ABSENT:
            mapping.pop(key, None)
        else:
            mapping[key] = value


class Watch:
    """Wraps a script's function and checks its results."""

    def __init__(self, function, script):
        self.function = function
        self.script = script

    def __call__(self, arguments):
        global _last
        _last = findings = Findings(self.script.tolerant)
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
        return [] if findings.counts["errors"] else result


def _cause(error, path):
    """Returns the line of the script that raised `error`, and its message."""
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
    """The module that replaces a script that cannot be imported."""


class Script:
    """A configured script, and the faults that are known before its first call."""

    def __init__(self, number, path, function_name, tolerant, own_module):
        self.path = path
        self.function_name = function_name
        self.tolerant = tolerant
        self.own_module = own_module
        self.name = os.path.basename(path)[:-3]
        if own_module:
            self.name = "rubruf_script_%d_%s" % (number, self.name.replace(".", "_"))
        self.findings = Findings()

    def bind(self):
        if os.path.basename(self.path) == ".py" or not self.path.endswith(".py"):
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
        if self.findings.counts["errors"]:
            return
        if function is _ABSENT:
            message = "there is no function %s: define it, or name the one to call" % self.function_name
            self.findings.error(self.path, message)
        elif not callable(function):
            self.findings.error(self.path, "%s is not a function" % self.function_name)
        elif not isinstance(function, Watch):
            _put(names, self.function_name, Watch(function, self))
            self.watch_answer(names, "get_tag", "the tag is made from the path")
            self.watch_answer(names, "get_app_id", "it gives no application ID")

    def load(self):
        """Imports the script. If that fails, an empty module replaces it, so that the plug-in can go on."""
        sys.path.append(os.path.dirname(self.path) or ".")
        if isinstance(sys.modules.get(self.name), _Stub):
            del sys.modules[self.name]
        try:
            if not self.own_module:
                return importlib.import_module(self.name)
            _put(vars(importlib.util), "spec_from_file_location", loaded_spec)
            return load_own(self.path, self.name)
        except BaseException as error:
            if not self.is_file():
                self.findings.error(self.path, "there is no such file")
            elif isinstance(error, ModuleNotFoundError) and "." in self.name:
                message = "%s: a name with a dot is that of a module in a package: rename the file"
                self.findings.error(self.path, message % _text(error))
            else:
                self.findings.error(*_cause(error, self.path))
            self.put_stub()
            return None
        finally:
            self.note_threads()

    def put_stub(self):
        stub = _Stub(self.name)
        setattr(stub, self.function_name, _ABSENT)
        if self.own_module:
            hand_out(self.path, stub)
            return
        _put(sys.modules, self.name, stub)
        package = self.name.partition(".")[0]  # the plug-in imports the package too
        if package not in sys.modules:
            _put(sys.modules, package, stub)

    def is_file(self):
        return os.path.isfile(os.path.join(_START, self.path))

    def note_threads(self):
        for thread in threading.enumerate():
            threads_of.setdefault(thread, self)

    def check_file(self, module):
        """Reports an error if the module is not this script, or has the name of a standard-library module."""
        file = getattr(module, "__file__", None) or "a built-in module"
        is_this = self.own_module or _same_file(file, self.path)
        if not self.own_module and _in_standard_library(self.name):
            what = "hides the standard library's module from every script" if is_this else "is never imported"
            self.findings.error(self.path, "has the name of a standard-library module and %s: rename the file" % what)
        elif not self.is_file():
            self.findings.error(self.path, "there is no such file")
        elif not is_this:
            message = "importing %s gives %s: files of one name share a module, rename one of them"
            self.findings.error(self.path, message % (self.name, file))

    def watch_answer(self, names, asked, consequence):
        """Wraps the function called `asked`, to report its faults: the plug-in ignores them."""
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
                message = "get_app_id returns %s: an ID has 32 hexadecimal digits, and " % shown(text)
                if self.tolerant:
                    self.findings.warning(self.path, message + "this one is ignored")
                else:
                    self.findings.error(self.path, message + "nothing starts without one")
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
