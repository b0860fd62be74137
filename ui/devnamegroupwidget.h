#pragma once

#include <QString>
#include <QWidget>

class CustomListWidget;
class DeleteTipsWidget;
class QListWidgetItem;
class QPushButton;

// The left pane of the group settings: the list of all lights followed by the user's groups,
// and the row that creates a group. Groups are renamed in place and deleted from a context menu.
class DevNameGroupWidget : public QWidget
{
    Q_OBJECT

public:
    explicit DevNameGroupWidget(QWidget *parent = nullptr);

    CustomListWidget *listWidget() const { return m_list; }
    QPushButton *addRow() const { return m_addRow; }
    // The first name of the series 创建群组, 创建群组_1, ... that no list entry carries yet.
    QString newGroupName() const;
    // The item carrying a group's uuid, or null.
    QListWidgetItem *itemForUuid(const QString &uuid) const;

signals:
    void addGroup(QString name);
    void delGroup(QString name);
    void selectGroup(QString name);

public slots:
    void showContextMenu(QPoint pos);
    void handleAddNewGroup();
    void handleItemChangedBefore(QListWidgetItem *item);
    void handleItemChanged(QListWidgetItem *item);
    void handleDeleteGroup(QString name);
    void handlCurrentItemChanged(QListWidgetItem *current, QListWidgetItem *previous);
    void onClickItem(QListWidgetItem *item);

private:
    QListWidgetItem *appendGroup(const QString &name, const QString &uuid);
    void deleteGroupItem(QListWidgetItem *item);
    bool isDefaultItem(const QListWidgetItem *item) const;
    void onStoreGroupAdded(const QString &uuid, const QString &name);
    void onStoreGroupDeleted(const QString &uuid);
    void onStoreGroupRenamed(const QString &uuid, const QString &name);

    CustomListWidget *m_list = nullptr;
    QString m_editText;                       // the name before the edit in progress
    QListWidgetItem *m_editingItem = nullptr; // set while its name is being edited
    DeleteTipsWidget *m_deleteTips = nullptr;
    QPushButton *m_addRow = nullptr;
};
