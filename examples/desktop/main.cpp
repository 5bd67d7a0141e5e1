// A download manager with a window: what it fetches never makes the window wait.
#include "examples/desktop/CDownloadWindow.h"
#include "examples/desktop/CLoopWatch.h"
#include "examples/desktop/CMainLoopExecutor.h"
#include "examples/localFiles.h"
#include "examples/runProgram.h"

#include <clocale>
#include <csignal>
#include <glib-unix.h>
#include <memory>
#include <optional>

namespace {

const CProgram program{
    .name = "desktop",
    .operands = {"[URL]..."},
    .purpose = R"(Opens a window that downloads files (http, https, ftp, ftps, sftp): they are
paused, resumed, cancelled and tried again there, and go on where an earlier run
has ended. The URLs are the first ones in its list.
)",
    .options = {
        {"--directory", "DIR", "where the files come to (default: this folder)"},
        {"--at-once", "N", "N files at once, 1 to 256 (default: 4)"},
        {"--ca", "FILE", "trust the certificates in this file only"},
        {"--measure", "", "tell in the end for how long the window gave no answer"},
    },
    .notes = R"(All users of this machine can see a login in a URL of the command line (ps);
nobody sees one that is typed into the window.
)",
};

constexpr long long mostAtOnce = 256;
constexpr long long usualAtOnce = 4;

/// The program while its window is open.
class CSession {
public:
    explicit CSession(const CArguments& arguments)
        : m_doesMeasure(arguments.has("--measure"))
    {
        CDownloadListSettings settings{
            .folder = Path::fromBytes(arguments.has("--directory") ? arguments.value("--directory") : "."),
            .atOnce = static_cast<int>(arguments.number("--at-once", 1, mostAtOnce, usualAtOnce)),
            .executor = m_executor,
            .onChange = {}};
        if (arguments.has("--ca"))
            settings.authority = readablePath(arguments.value("--ca"));
        requireFolder(settings.folder.toBytes());
        for (const std::string& url : arguments.operands())
            m_urls.push_back(textOf(url, "a URL"));
        m_window = std::make_unique<CDownloadWindow>(settings, [this] { g_main_loop_quit(m_loop); });
    }
    CSession(const CSession&) = delete;
    CSession& operator=(const CSession&) = delete;
    ~CSession() { g_main_loop_unref(m_loop); }

    /// @return the exit code
    int run()
    {
        if (m_doesMeasure) // drawing for the first time reads themes and fonts, which no download has to answer for
            g_signal_connect_after(m_window->widget(), "draw", G_CALLBACK(&CSession::onDrawn), this);
        else
            g_idle_add(&CSession::begin, this);
        g_unix_signal_add(SIGINT, &CSession::onSignal<SIGINT>, this);
        g_unix_signal_add(SIGTERM, &CSession::onSignal<SIGTERM>, this);
        g_unix_signal_add(SIGHUP, &CSession::onSignal<SIGHUP>, this);
        g_main_loop_run(m_loop);
        if (m_watch)
            print(m_watch->report().toUTF8() + '\n');
        return m_signal == 0 ? exitDone : exitSignal + m_signal;
    }

private:
    static gboolean begin(gpointer session)
    {
        auto& self = *static_cast<CSession*>(session);
        if (self.m_doesMeasure)
            self.m_watch.emplace();
        for (const kx::String& url : self.m_urls)
            self.m_executor->execute([&self, url] { self.m_window->add(url); });
        return G_SOURCE_REMOVE;
    }

    static gboolean onDrawn(GtkWidget* window, void*, gpointer session)
    {
        g_signal_handlers_disconnect_by_data(window, session);
        g_idle_add(&CSession::begin, session);
        return FALSE;
    }

    template <int number>
    static gboolean onSignal(gpointer session)
    {
        auto& self = *static_cast<CSession*>(session);
        self.m_signal = number;
        self.m_window->close();
        return G_SOURCE_REMOVE; // the next one ends it at once
    }

    const bool m_doesMeasure;
    kx::TArray<kx::String> m_urls;
    int m_signal = 0;
    GMainLoop* const m_loop = g_main_loop_new(nullptr, FALSE);
    const kx::P<CMainLoopExecutor> m_executor = kx::newObj<CMainLoopExecutor>();
    std::unique_ptr<CDownloadWindow> m_window;
    std::optional<CLoopWatch> m_watch;
};

int openWindow(const CArguments& arguments)
{
    gdk_set_allowed_backends("wayland,x11"); // and no network for a window
    gtk_disable_setlocale();                 // numbers and messages are the same everywhere
    std::setlocale(LC_CTYPE, "");            // host names may hold letters beyond ASCII
    if (!gtk_init_check(nullptr, nullptr))
        throw kx::CError("no display for a window: DISPLAY or WAYLAND_DISPLAY names one");
    return CSession(arguments).run();
}

} // namespace

int main(int argc, char** argv)
{
    return runProgram(program, argc, argv, openWindow);
}
