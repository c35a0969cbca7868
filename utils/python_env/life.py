"""Prepares the interpreter for its lives. A life lasts from the interpreter's first user to its last.

An interpreter that cannot be stopped stays for the next life, which finds it as good as new: end() drops what belongs
to scripts, begin() undoes what the end of a life told the standard library. Scripts do not see this namespace.
"""

import _thread
import codecs
import gc
import os
import sys

# What scripts may replace in sys, and each life finds as the first one found it.
ATTRIBUTES = ("path", "stdin", "stdout", "stderr", "excepthook", "unraisablehook", "displayhook")
first = {}
first_path = []
directories = set()  # of this life's scripts
latest = "a script"  # the one that was imported last
importers = {}  # the script that imported an extension module, by the module's file


def begin():
    if first:
        vars(sys).update(first)
        sys.path[:] = first_path
        revive()
        return
    sys.executable = fitting_executable()
    widen_stdout()
    first.update((name, vars(sys)[name]) for name in ATTRIBUTES if name in vars(sys))
    first_path.extend(sys.path)


def imported(script):
    global latest
    latest = script
    directories.add(os.path.realpath(os.path.dirname(script)))


def loaded(module):
    importers.setdefault(module, latest)


def importer_of(module):
    return importers.get(module, "a script")


def end():
    drop_modules()
    directories.clear()
    sys.path_importer_cache.clear()
    sys.settrace(None)
    sys.setprofile(None)
    gc.collect()


def drop_modules():
    """Drops the modules of scripts, and those from directories that the life added to sys.path.

    Packages with extension modules stay, because these cannot be loaded again. Installed packages stay too, because
    those that stay may use them.
    """
    roots = directories.union(os.path.realpath(entry) for entry in sys.path or () if isinstance(entry, str))
    roots.difference_update(map(os.path.realpath, first_path))
    roots = {root for root in roots if os.path.basename(root) not in ("site-packages", "dist-packages")}
    packages = {}
    for name, module in list(sys.modules.items()):
        packages.setdefault(str(name).partition(".")[0], {})[name] = module
    for name, modules in packages.items():
        if found_in(modules.get(name)) & roots and not any(map(is_extension, modules.values())):
            for dropped in modules:
                sys.modules.pop(dropped, None)


def attributes(module):
    """A module's, without a call of code that it may have for that."""
    return object.__getattribute__(module, "__dict__") if isinstance(module, type(sys)) else {}


def found_in(module):
    """The directories that hold a module, or a package."""
    places = list(attributes(module).get("__path__", ())) or [attributes(module).get("__file__")]
    return {os.path.realpath(os.path.dirname(place)) for place in places if isinstance(place, str)}


def is_extension(module):
    return str(attributes(module).get("__file__")).endswith(".so")


def revive():
    """The end of a life looks like the end of the process to the standard library."""
    import atexit

    modules = sys.modules
    threading = modules.get("threading")
    if threading:
        threading._SHUTTING_DOWN = False
        # The old one has been ended. The new one is the thread of this life, also where that is not the first thread.
        threading._get_main_thread_ident = _thread.get_ident
        threading._main_thread = threading._MainThread()
    pools = (modules.get("concurrent.futures.thread"), "_shutdown"), (
        modules.get("concurrent.futures.process"), "_global_shutdown")
    for module, flag in pools:
        if module:
            setattr(module, flag, False)
            # Later versions register this in threading, where it stays.
            if sys.version_info < (3, 9):
                atexit.register(module._python_exit)
    if "weakref" in modules:
        modules["weakref"].finalize._shutdown = False
        modules["weakref"].finalize._registered_with_atexit = False
    if "multiprocessing.util" in modules:
        modules["multiprocessing.util"]._exiting = False
        atexit.register(modules["multiprocessing.util"]._exit_function)
    if "logging" in modules:
        atexit.register(modules["logging"].shutdown)


def thread_left():
    """Names a thread beside this one, and the file that its code is from."""
    threading = sys.modules.get("threading")
    for ident, frame in sys._current_frames().items():
        if ident == _thread.get_ident():
            continue
        file = None
        while frame is not None:
            if threading is None or frame.f_code.co_filename != threading.__file__:
                file = frame.f_code.co_filename
            frame = frame.f_back
        thread = threading and threading._active.get(ident)
        return "%s of %s" % (thread.name if thread else "one without a name", file or "the standard library")
    return "one of a native module"


def fitting_executable():
    """The program of this very Python, or an empty text: multiprocessing starts its workers with it."""
    name = "python%d.%d%s" % (*sys.version_info[:2], getattr(sys, "abiflags", ""))
    candidates = [os.path.join(prefix, "bin", name) for prefix in (sys.exec_prefix, sys.base_exec_prefix)]
    fitting = [candidate for candidate in candidates if os.access(candidate, os.X_OK)]
    if sys.executable and os.path.realpath(sys.executable) in map(os.path.realpath, fitting):
        return sys.executable
    return fitting[0] if fitting else ""


def widen_stdout():
    """Without a locale, standard output takes ASCII only. As in the program python, it then takes UTF-8."""
    out = sys.stdout
    if out and "PYTHONIOENCODING" not in os.environ and codecs.lookup(out.encoding).name == "ascii":
        out.reconfigure(encoding="utf-8", errors="surrogateescape")
