// A stand-in for the libpython of another version: only the global symbols by which the plug-in recognizes one.

extern "C" {
extern int _Py_NoneStruct;
int _Py_NoneStruct = 0;
const char* Py_GetVersion() { return "2.7.99"; }
}
