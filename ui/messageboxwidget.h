#pragma once

#include <QDialog>

class QLabel;
class QPushButton;
class TipsBar;

// The one-button notice of the main window (Bluetooth state, update replies). Not modal: a new
// message simply replaces the text of a box that is still open.
class MessageBoxWidget : public QDialog
{
    Q_OBJECT

public:
    explicit MessageBoxWidget(QWidget *parent = nullptr);

    void setText(const QString &text);
    QString text() const;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QLabel *m_label = nullptr;
    QPushButton *m_okButton = nullptr;
    TipsBar *m_tipsBar = nullptr;
};
