#pragma once

#include "devdata.h"

#include <QFrame>
#include <QList>
#include <QString>

class ControlItemWidget;
class GroupHeaderWidget;
class QGroupBox;
class QScrollArea;
class QVBoxLayout;

// The control page: a scrolling column of group sections, the list of all devices first, each
// with one card per light. It mirrors the store and never writes to it; the cards do that.
class ControlWidget : public QFrame
{
    Q_OBJECT

public:
    explicit ControlWidget(QWidget *parent = nullptr);

    // Sections in display order; the title is the group's name and the property "uuid" its uuid.
    QList<QGroupBox *> sections() const { return m_groupBoxes; }
    QGroupBox *section(const QString &uuid) const;
    static QList<ControlItemWidget *> cards(const QGroupBox *section);
    static ControlItemWidget *card(const QGroupBox *section, const QString &addr);
    static GroupHeaderWidget *header(const QGroupBox *section);

signals:
    void getDevice();
    void clearDeviceSig();

public slots:
    void onAddDev(QString uuid, QString groupName, DevData info);
    void onDelDev(QString uuid, QString groupName, QString addr);
    void onUpdateDev(QString uuid, QString groupName, DevData info);
    void onAddGroup(QString uuid, QString name);
    void onDelGroup(QString uuid);
    void onUpdateGroup(QString uuid, QString newName);

private:
    void load();
    void addSection(const QString &uuid, const QString &name, const QList<DevData> &records);
    void addCard(QGroupBox *section, const QString &uuid, const QString &groupName, const DevData &info);
    void removeSection(QGroupBox *section);

    QVBoxLayout *m_mainLayout = nullptr;
    QList<QGroupBox *> m_groupBoxes;
    QScrollArea *m_scrollArea = nullptr;
    QWidget *m_scrollContent = nullptr;
    QVBoxLayout *m_contentLayout = nullptr;
};
