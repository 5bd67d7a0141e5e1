#include "examples/desktop/CDownloadWindow.h"

#include <algorithm>
#include <string>
#include <utility>

namespace {

constexpr int gap = 8;
constexpr guint refreshMilliseconds = 250;

/// @param react a function of the window
template <void (CDownloadWindow::*react)()>
void callWindow(GtkWidget*, gpointer window) noexcept
{
    (static_cast<CDownloadWindow*>(window)->*react)();
}

GtkWidget* makeBox(GtkOrientation orientation)
{
    GtkWidget* const box = gtk_box_new(orientation, gap);
    gtk_container_set_border_width(GTK_CONTAINER(box), orientation == GTK_ORIENTATION_VERTICAL ? gap : 0);
    return box;
}

GtkWidget* makeLine(bool isWrapped)
{
    GtkWidget* const label = gtk_label_new(nullptr);
    gtk_label_set_xalign(GTK_LABEL(label), 0);
    gtk_label_set_selectable(GTK_LABEL(label), isWrapped);
    gtk_label_set_line_wrap(GTK_LABEL(label), isWrapped);
    gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
    return label;
}

void add(GtkWidget* box, GtkWidget* widget, bool takesRoom = false)
{
    gtk_box_pack_start(GTK_BOX(box), widget, takesRoom, takesRoom, 0);
}

CDownloadListSettings withListener(CDownloadListSettings settings, std::function<void(size_t)> onChange)
{
    settings.onChange = std::move(onChange);
    return settings;
}

} // namespace

CDownloadWindow::CDownloadWindow(CDownloadListSettings settings, std::function<void()> onClosed)
    : m_onClosed(std::move(onClosed))
    , m_window(gtk_window_new(GTK_WINDOW_TOPLEVEL))
    , m_entry(gtk_entry_new())
    , m_notice(makeLine(true))
    , m_summary(makeLine(false))
    , m_buttons{{{DownloadAction::Pause, "_Pause"}, {DownloadAction::Resume, "_Resume"},
          {DownloadAction::Cancel, "_Cancel"}, {DownloadAction::Retry, "Re_try"}}}
    , m_table(std::make_unique<CDownloadTable>([this] { showSelection(); }))
    , m_list(withListener(std::move(settings), [this](size_t number) { onChange(number); }))
{
    constexpr int width = 760;
    constexpr int height = 420;
    gtk_window_set_title(GTK_WINDOW(m_window), "Downloads");
    gtk_window_set_default_size(GTK_WINDOW(m_window), width, height);
    GtkWidget* const box = makeBox(GTK_ORIENTATION_VERTICAL);
    gtk_container_add(GTK_CONTAINER(m_window), box);
    ::add(box, makeAddLine());
    ::add(box, makeScrolledTable(), true);
    ::add(box, m_notice);
    ::add(box, makeButtons());
    const auto onDelete = +[](GtkWidget*, GdkEvent*, gpointer window) -> gboolean {
        static_cast<CDownloadWindow*>(window)->close();
        return TRUE; // it goes when everything has ended
    };
    g_signal_connect(m_window, "delete-event", G_CALLBACK(onDelete), this);
    const auto onTick = +[](gpointer window) -> gboolean {
        static_cast<CDownloadWindow*>(window)->refresh();
        return G_SOURCE_CONTINUE;
    };
    m_ticks = g_timeout_add(refreshMilliseconds, onTick, this);
    showSelection();
    showSummary();
    gtk_widget_show_all(m_window);
}

CDownloadWindow::~CDownloadWindow()
{
    g_source_remove(m_ticks);
    m_table.reset();
    gtk_widget_destroy(m_window);
}

void CDownloadWindow::add(const kx::String& url)
{
    if (m_isClosing)
        return;
    try {
        m_table->append(m_list.at(m_list.add(url)));
        showNotice({});
    } catch (const kx::CError& error) {
        showNotice(error.getMessage());
    }
    showSummary();
}

void CDownloadWindow::close()
{
    gtk_widget_hide(m_window);
    m_isClosing = true;
    m_list.cancelAll();
    endWhenClosed();
}

GtkWidget* CDownloadWindow::makeAddLine()
{
    GtkWidget* const line = makeBox(GTK_ORIENTATION_HORIZONTAL);
    gtk_entry_set_placeholder_text(GTK_ENTRY(m_entry), "The URL of a file");
    g_signal_connect(m_entry, "activate", G_CALLBACK(&callWindow<&CDownloadWindow::addTyped>), this);
    GtkWidget* const button = gtk_button_new_with_mnemonic("_Add");
    g_signal_connect(button, "clicked", G_CALLBACK(&callWindow<&CDownloadWindow::addTyped>), this);
    ::add(line, m_entry, true);
    ::add(line, button);
    return line;
}

GtkWidget* CDownloadWindow::makeButtons()
{
    GtkWidget* const line = makeBox(GTK_ORIENTATION_HORIZONTAL);
    for (CButton& button : m_buttons) {
        button.window = this;
        button.widget = gtk_button_new_with_mnemonic(button.label);
        const auto onClick = +[](GtkWidget*, gpointer data) {
            const auto* const clicked = static_cast<CButton*>(data);
            clicked->window->act(clicked->action);
        };
        g_signal_connect(button.widget, "clicked", G_CALLBACK(onClick), &button);
        ::add(line, button.widget);
    }
    gtk_box_pack_end(GTK_BOX(line), m_summary, FALSE, FALSE, 0);
    return line;
}

GtkWidget* CDownloadWindow::makeScrolledTable()
{
    GtkWidget* const scrolled = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
    gtk_container_add(GTK_CONTAINER(scrolled), m_table->widget());
    return scrolled;
}

void CDownloadWindow::addTyped()
{
    const kx::String url = kx::String::fromUTF8(gtk_entry_get_text(GTK_ENTRY(m_entry)));
    if (url.trim().isEmpty())
        return;
    const size_t before = m_list.size();
    add(url);
    if (m_list.size() > before) // otherwise it is there to be mended
        gtk_entry_set_text(GTK_ENTRY(m_entry), "");
}

void CDownloadWindow::act(DownloadAction action)
{
    try {
        for (const size_t number : m_table->selected())
            m_list.act(action, number);
        showSelection();
    } catch (const kx::CError& error) { // no thread for another try
        showNotice(error.getMessage());
    }
}

/// On the loop's thread: the list sees to that.
void CDownloadWindow::onChange(size_t number)
{
    m_table->update(number, m_list.at(number));
    if (m_list.at(number).status().hasEnded()) {
        showSelection();
        showSummary();
        endWhenClosed();
    }
}

/// What nobody is called for: a turn that has come, a pause that has begun, a server that has fallen silent.
void CDownloadWindow::refresh()
{
    for (size_t number = 0; number < m_list.size(); ++number)
        m_table->update(number, m_list.at(number));
    showSelection();
    showSummary();
}

void CDownloadWindow::showSelection()
{
    const std::vector<size_t> selected = m_table->selected();
    for (const CButton& button : m_buttons) {
        const bool isPossible = std::any_of(selected.begin(), selected.end(),
            [&](size_t number) { return m_list.at(number).status().can(button.action); });
        gtk_widget_set_sensitive(button.widget, isPossible);
    }
    if (selected.size() == 1)
        showNotice(m_list.at(selected.front()).status().text());
}

void CDownloadWindow::showSummary()
{
    gtk_label_set_text(GTK_LABEL(m_summary), m_list.size() > 0 ? m_list.summary().toDisplayUTF8().c_str() : "");
}

void CDownloadWindow::showNotice(const kx::String& text)
{
    const std::string shown = text.toDisplayUTF8();
    if (shown != gtk_label_get_text(GTK_LABEL(m_notice))) // a label that is set anew forgets what is selected in it
        gtk_label_set_text(GTK_LABEL(m_notice), shown.c_str());
}

void CDownloadWindow::endWhenClosed()
{
    if (m_isClosing && !m_isClosed && m_list.hasEnded()) {
        m_isClosed = true;
        m_onClosed();
    }
}
