// A libpython of another version, as far as a look at the global symbols tells.

extern "C" {
extern int _Py_NoneStruct;
int _Py_NoneStruct = 0;
const char* Py_GetVersion() { return "2.7.99"; }
}
