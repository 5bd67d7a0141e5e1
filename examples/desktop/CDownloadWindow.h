#pragma once

#include "examples/desktop/CDownloadList.h"
#include "examples/desktop/CDownloadTable.h"

#include <array>
#include <functional>
#include <gtk/gtk.h>
#include <memory>

/// The window of the download manager: a line for a URL, the table, a button for each action. On the thread of GTK's
/// main loop, which nothing in here makes wait.
class CDownloadWindow {
public:
    /// Shows it.
    /// @param settings onChange is the window's own
    /// @param onClosed called once, when it is closed and nothing runs any more; may destroy nothing of it
    CDownloadWindow(CDownloadListSettings settings, std::function<void()> onClosed);
    CDownloadWindow(const CDownloadWindow&) = delete;
    CDownloadWindow& operator=(const CDownloadWindow&) = delete;
    ~CDownloadWindow();

    /// What is wrong with the URL stands in the window. One that is being closed takes none.
    void add(const kx::String& url);

    /// Cancels what runs; what has come of it stays, for the next time.
    void close();

    GtkWidget* widget() const { return m_window; }

private:
    struct CButton {
        DownloadAction action;
        const char* label;
        GtkWidget* widget = nullptr;
        CDownloadWindow* window = nullptr;
    };

    GtkWidget* makeAddLine();
    GtkWidget* makeButtons();
    GtkWidget* makeScrolledTable();
    void addTyped();
    void act(DownloadAction action);
    void onChange(size_t number);
    void refresh();
    void showSelection();
    void showSummary();
    void showNotice(const kx::String& text);
    void endWhenClosed();

    const std::function<void()> m_onClosed;
    GtkWidget* const m_window;
    GtkWidget* const m_entry;
    GtkWidget* const m_notice; ///< what is to be said of the selected download, or of a URL
    GtkWidget* const m_summary;
    std::array<CButton, 4> m_buttons;
    std::unique_ptr<CDownloadTable> m_table; ///< goes before the window
    CDownloadList m_list;
    guint m_ticks;
    bool m_isClosing = false;
    bool m_isClosed = false;
};
