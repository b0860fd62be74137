#pragma once

#include <QPoint>
#include <QString>
#include <QWidget>

// The value bubble above a slider's handle. A tool window of its own, so it can float past the
// edge of the slider's window.
class CustomPopup : public QWidget
{
    Q_OBJECT

public:
    explicit CustomPopup(QWidget *parent = nullptr);

    QString text() const { return m_text; }
    void setText(const QString &text) { m_text = text; }

    // Moves the bubble so that the tip of its pointer sits on anchor (global coordinates).
    void placeAt(const QPoint &anchor);

protected:
    void paintEvent(QPaintEvent *event) override;
    void leaveEvent(QEvent *event) override;

private:
    QString m_text = QStringLiteral("0");
};
