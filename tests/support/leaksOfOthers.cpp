// What other libraries lose. LeakSanitizer asks for this in each program that has it. The C library's setlocale() loses
// its copy of LOCPATH; libssh2 1.10 loses its keys where a connection is given up in the middle of the key exchange.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:argz_add_sep\nleak:libssh2.so";
}
