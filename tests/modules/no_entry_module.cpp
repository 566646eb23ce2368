// A shared library that links the host but exports no RegisterDataFileTypes: loading it as
// a module must fail with a clear error.
extern "C" int KivTestModuleWithoutEntry()
{
    return 1;
}
