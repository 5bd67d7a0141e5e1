#include "examples/desktop/CDownloadTable.h"

#include <string>
#include <utility>

namespace {

enum Column : int { NameColumn, PercentColumn, PercentTextColumn, PulseColumn, TextColumn, ColumnCount };

constexpr int noPulse = -1;

} // namespace

CDownloadTable::CDownloadTable(std::function<void()> onSelection)
    : m_onSelection(std::move(onSelection))
    , m_store(gtk_list_store_new(ColumnCount, G_TYPE_STRING, G_TYPE_INT, G_TYPE_STRING, G_TYPE_INT, G_TYPE_STRING))
    , m_view(GTK_WIDGET(g_object_ref_sink(gtk_tree_view_new_with_model(GTK_TREE_MODEL(m_store)))))
{
    constexpr int nameWidth = 210;
    constexpr int textWidth = 330;
    addTextColumn("File", NameColumn, nameWidth, PANGO_ELLIPSIZE_MIDDLE);
    addBarColumn();
    addTextColumn("State", TextColumn, textWidth, PANGO_ELLIPSIZE_END);
    // Rows of one height, which are not measured: what a change costs does not grow with their number.
    gtk_tree_view_set_fixed_height_mode(GTK_TREE_VIEW(m_view), TRUE);
    gtk_tree_view_set_tooltip_column(GTK_TREE_VIEW(m_view), -1);
    gtk_tree_view_set_search_column(GTK_TREE_VIEW(m_view), NameColumn);
    GtkTreeSelection* const selection = gtk_tree_view_get_selection(GTK_TREE_VIEW(m_view));
    gtk_tree_selection_set_mode(selection, GTK_SELECTION_MULTIPLE);
    const auto tell = +[](GtkTreeSelection*, gpointer table) { static_cast<CDownloadTable*>(table)->m_onSelection(); };
    g_signal_connect(selection, "changed", G_CALLBACK(tell), this);
}

CDownloadTable::~CDownloadTable()
{
    g_signal_handlers_disconnect_by_data(gtk_tree_view_get_selection(GTK_TREE_VIEW(m_view)), this);
    g_object_unref(m_view);
    g_object_unref(m_store);
}

void CDownloadTable::append(const CListedDownload& download)
{
    CRow& row = m_rows.emplace_back();
    row.look = lookOf(download.status());
    gtk_list_store_append(m_store, &row.place);
    gtk_list_store_set(m_store, &row.place, NameColumn, download.name().toDisplayUTF8().c_str(), -1);
    show(row);
}

void CDownloadTable::update(size_t number, const CListedDownload& download)
{
    CRow& row = m_rows.at(number);
    CLook look = lookOf(download.status());
    if (look == row.look && !look.isOfUnknownLength)
        return;
    row.look = std::move(look);
    show(row);
}

std::vector<size_t> CDownloadTable::selected() const
{
    std::vector<size_t> numbers;
    const auto note = [](GtkTreeModel*, GtkTreePath* path, GtkTreeIter*, gpointer noted) {
        static_cast<std::vector<size_t>*>(noted)->push_back(static_cast<size_t>(gtk_tree_path_get_indices(path)[0]));
    };
    gtk_tree_selection_selected_foreach(gtk_tree_view_get_selection(GTK_TREE_VIEW(m_view)), note, &numbers);
    return numbers;
}

CDownloadTable::CLook CDownloadTable::lookOf(const CDownloadStatus& status)
{
    const std::optional<int> percent = status.percent();
    return {.text = status.text(), .percent = percent.value_or(0), .isOfUnknownLength = !percent};
}

void CDownloadTable::show(CRow& row)
{
    const CLook& look = row.look;
    const std::string percent = look.percent > 0 ? std::to_string(look.percent) + " %" : "";
    const int pulse = look.isOfUnknownLength ? ++row.pulse : noPulse;
    gtk_list_store_set(m_store, &row.place, PercentColumn, look.percent, PercentTextColumn, percent.c_str(),
        PulseColumn, pulse, TextColumn, look.text.toDisplayUTF8().c_str(), -1);
}

void CDownloadTable::addTextColumn(const char* title, int column, int width, PangoEllipsizeMode ellipsize)
{
    GtkCellRenderer* const cell = gtk_cell_renderer_text_new();
    g_object_set(cell, "ellipsize", ellipsize, nullptr);
    GtkTreeViewColumn* const shown = gtk_tree_view_column_new_with_attributes(title, cell, "text", column, nullptr);
    gtk_tree_view_column_set_sizing(shown, GTK_TREE_VIEW_COLUMN_FIXED);
    gtk_tree_view_column_set_fixed_width(shown, width);
    gtk_tree_view_column_set_resizable(shown, TRUE);
    gtk_tree_view_append_column(GTK_TREE_VIEW(m_view), shown);
}

void CDownloadTable::addBarColumn()
{
    constexpr int width = 140;
    GtkTreeViewColumn* const shown
        = gtk_tree_view_column_new_with_attributes("Progress", gtk_cell_renderer_progress_new(), "value", PercentColumn,
            "text", PercentTextColumn, "pulse", PulseColumn, nullptr);
    gtk_tree_view_column_set_sizing(shown, GTK_TREE_VIEW_COLUMN_FIXED);
    gtk_tree_view_column_set_fixed_width(shown, width);
    gtk_tree_view_append_column(GTK_TREE_VIEW(m_view), shown);
}
