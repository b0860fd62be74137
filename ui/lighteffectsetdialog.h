#pragma once

#include <QDialog>
#include <QHash>
#include <QString>

class QGridLayout;
class QScrollArea;
class WrapButton;

// The grid of effect buttons shown in a card's effect drop-down: five per row, one checked at most.
class LightEffectSetDialog : public QDialog
{
    Q_OBJECT

public:
    static constexpr int kColumns = 5;

    explicit LightEffectSetDialog(QWidget *parent = nullptr);

    // Fills the grid with the effects of a protocol; a protocol without effects leaves it as it was.
    void loadEffects(const QString &addr, int protocol);
    // Checks the button of cmd; an unknown cmd unchecks everything and reports an empty selection.
    void selectEffectCmd(const QString &cmd);
    void clearEffectCmd(const QString &cmd);
    bool isEmpty() const { return m_buttons.isEmpty(); }

    QString addr() const { return m_addr; }
    int protocol() const { return m_protocol; }
    QString checkedCmd() const;
    WrapButton *button(const QString &cmd) const { return m_buttons.value(cmd); }

signals:
    void selectEffect(QString name, QString cmd);

private:
    void onButtonClicked(WrapButton *button, const QString &name, const QString &cmd);

    QGridLayout *m_grid = nullptr;
    QString m_addr;
    qint32 m_protocol = -1;
    WrapButton *m_checked = nullptr;
    QHash<QString, WrapButton *> m_buttons;
    QScrollArea *m_scrollArea = nullptr;
};
