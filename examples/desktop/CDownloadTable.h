#pragma once

#include "examples/desktop/CListedDownload.h"

#include <functional>
#include <gtk/gtk.h>
#include <vector>

/// The lines that a window shows of a list, with a bar each, of which a person selects some. Its rows are numbered as
/// the list's downloads. A row costs its drawing alone, and only while it can be seen: thousands are fine.
class CDownloadTable {
public:
    /// @param onSelection called when others are selected
    explicit CDownloadTable(std::function<void()> onSelection);
    CDownloadTable(const CDownloadTable&) = delete;
    CDownloadTable& operator=(const CDownloadTable&) = delete;
    ~CDownloadTable();

    /// Whoever puts it into a window lets go of it before this object goes.
    GtkWidget* widget() const { return m_view; }

    void append(const CListedDownload& download);

    /// Draws nothing where it looks as before.
    void update(size_t number, const CListedDownload& download);

    std::vector<size_t> selected() const;

private:
    /// What a row shows.
    struct CLook {
        kx::String text;
        int percent = 0;
        bool isOfUnknownLength = false;

        bool operator==(const CLook&) const = default;
    };

    struct CRow {
        GtkTreeIter place{};
        CLook look;
        int pulse = 0; ///< moves the bar of a download of which nobody knows how long it is
    };

    static CLook lookOf(const CDownloadStatus& status);
    void show(CRow& row);
    void addTextColumn(const char* title, int column, int width, PangoEllipsizeMode ellipsize);
    void addBarColumn();

    const std::function<void()> m_onSelection;
    GtkListStore* const m_store;
    GtkWidget* const m_view;
    std::vector<CRow> m_rows;
};
