#include "UpdateTableModel.h"

#include "platform/foundation/Foundation.h"

namespace {

// A size the feed gave as a number (or a numeric string) in bytes reads as "40.1 MB".
QVariant sizeText(const QVariant& size)
{
    if (!size.isValid())
        return {};
    bool numeric = false;
    const double bytes = size.toString().trimmed().toDouble(&numeric);
    return numeric && bytes > 0 ? AppController::formatFileSize(bytes) : size.toString();
}

} // namespace

UpdateTableModel::UpdateTableModel(AppController& controller, QObject* parent)
    : QAbstractTableModel(parent), controller_(controller)
{
}

QString UpdateTableModel::columnIdentifier(int column)
{
    switch (column) {
    case CheckColumn: return QStringLiteral("check");
    case TitleColumn: return QStringLiteral("title");
    case SizeColumn: return QStringLiteral("curSize");
    case RequirementsColumn: return QStringLiteral("requirements");
    default: return {};
    }
}

void UpdateTableModel::reload()
{
    beginResetModel();
    {
        std::lock_guard lock(controller_.dataArrayLock);
        rows_ = controller_.dataArray;
    }
    endResetModel();
}

int UpdateTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(rows_.size());
}

int UpdateTableModel::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant UpdateTableModel::displayValue(const QModelIndex& index) const
{
    const QVariant value = AppController::tableViewObjectValue(rows_, columnIdentifier(index.column()), index.row());
    return index.column() == SizeColumn ? sizeText(value) : value;
}

QVariant UpdateTableModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    if (index.column() == CheckColumn) {
        const QVariant checked = AppController::tableViewObjectValue(rows_, columnIdentifier(CheckColumn), index.row());
        if (role == Qt::CheckStateRole)
            return fnd::intValue(checked) == 1 ? Qt::Checked : Qt::Unchecked;
        if (role == Qt::AccessibleTextRole || role == Qt::ToolTipRole)
            return QStringLiteral("Install %1").arg(displayValue(index.siblingAtColumn(TitleColumn)).toString());
        return {};
    }
    if (role == Qt::DisplayRole || role == Qt::ToolTipRole || role == Qt::AccessibleTextRole)
        return displayValue(index);
    if (role == Qt::TextAlignmentRole && index.column() == SizeColumn)
        return int(Qt::AlignRight | Qt::AlignVCenter);
    return {};
}

bool UpdateTableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || index.column() != CheckColumn || role != Qt::CheckStateRole)
        return false;
    if (!(flags(index) & Qt::ItemIsEnabled))
        return false;
    const int selected = value.value<Qt::CheckState>() == Qt::Checked ? 1 : 0;
    rows_[index.row()].insert(QStringLiteral("selected"), selected);
    controller_.tableViewSetObjectValue(selected, columnIdentifier(CheckColumn), index.row());
    Q_EMIT dataChanged(index, index, {Qt::CheckStateRole});
    return true;
}

Qt::ItemFlags UpdateTableModel::flags(const QModelIndex& index) const
{
    if (!index.isValid() || index.row() >= rows_.size())
        return Qt::NoItemFlags;
    if (index.column() != CheckColumn)
        return Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (!AppController::tableViewCheckCellEnabled(rows_.at(index.row())))
        return Qt::ItemIsSelectable; // shown, but neither enabled nor tickable
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsUserCheckable;
}

QVariant UpdateTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || (role != Qt::DisplayRole && role != Qt::AccessibleTextRole))
        return {};
    switch (section) {
    case CheckColumn: return role == Qt::AccessibleTextRole ? QStringLiteral("Install") : QString();
    case TitleColumn: return QStringLiteral("Update");
    case SizeColumn: return QStringLiteral("Size");
    case RequirementsColumn: return QStringLiteral("Requirements");
    default: return {};
    }
}
