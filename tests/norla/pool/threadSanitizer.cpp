#ifdef __SANITIZE_THREAD__
// libcurl closes the socket of a connection that it gives up before it tells that nobody is to wait for it: another
// thread's may have the number by then. The epoll descriptor does not know that one, and identify() finds out.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions()
{
    return "race:norla::CSocketEvents::set\nrace:norla::CSocketEvents::forget\n"
           "race:norla::COpenSockets::identify";
}
#endif
