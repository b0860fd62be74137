#pragma once

#include "devdata.h"

#include <QWidget>

class QLabel;
class QPushButton;

// One light in the group settings: its name, whether it is online, and a button that takes it out
// of the list shown.
class DeviceItem : public QWidget
{
    Q_OBJECT

public:
    explicit DeviceItem(const DevData &data, QWidget *parent = nullptr);

    QString addr() const { return m_addr; }
    QString name() const;
    bool isOnline() const { return m_online; }
    // Follows the stored record: name and link state.
    void setData(const DevData &data);
    QPushButton *removeButton() const { return m_removeButton; }

signals:
    void removeClicked(QString addr);

private:
    QString m_addr;
    bool m_online = false;
    QLabel *m_stateDot = nullptr;
    QLabel *m_nameLabel = nullptr;
    QLabel *m_stateLabel = nullptr;
    QPushButton *m_removeButton = nullptr;
};
