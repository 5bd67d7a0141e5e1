// A test that takes parts of the library into itself has some of its globals twice. AddressSanitizer minds that only
// where they are of different sizes.
extern "C" const char* __asan_default_options();

extern "C" const char* __asan_default_options()
{
    return "detect_odr_violation=1";
}
