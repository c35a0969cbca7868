// PythonLock: holds the interpreter's lock during a callback, where the lock is given back between callbacks.
//
// By default the thread that called initialize holds the lock until finalize. A life that gives it back lets threads of
// scripts run while the host does other things. Callbacks stay on one thread; nested ones change nothing.

#ifndef RUBRUF_PROVIDER_PYTHON_LOCK_H_
#define RUBRUF_PROVIDER_PYTHON_LOCK_H_

class PythonLock {
 public:
  // Takes the lock, if the callback before has given it back.
  PythonLock();
  // Gives the lock back, between BeginLife and EndLife.
  ~PythonLock();
  PythonLock(const PythonLock&) = delete;
  PythonLock& operator=(const PythonLock&) = delete;

  // From the end of this callback on the lock is given back. Only for an interpreter of ours: a warning tells where it
  // is the host's.
  static void BeginLife();
  // From now on the lock is kept.
  static void EndLife();
};

#endif  // RUBRUF_PROVIDER_PYTHON_LOCK_H_
