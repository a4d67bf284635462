#pragma once
// UpdateTableModel: the update list's rows for the table view (the outlet tableView), served by
// the controller's data-source rules. Columns keep their identifiers ("check", "title",
// "curSize", "requirements"), readable through columnIdentifier().
//
// The model shows its own copy of dataArray, taken by reload(): a check that holds the lock of
// dataArray on a worker for a whole group check never blocks the painting of the window. Edits of
// the check column go to the controller (which updates the record and the install button) and
// to the copy.
//
// Lifecycle: owned by the main window; the controller outlives it. Main thread only.

#include "AppController.h"

#include <QAbstractTableModel>

class UpdateTableModel final : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { CheckColumn, TitleColumn, SizeColumn, RequirementsColumn, ColumnCount };

    explicit UpdateTableModel(AppController& controller, QObject* parent = nullptr);

    static QString columnIdentifier(int column);

    // Takes a new copy of the controller's list.
    void reload();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    QVariant displayValue(const QModelIndex& index) const;

    AppController& controller_; // not owned
    QList<UpdateRecord> rows_;
};
