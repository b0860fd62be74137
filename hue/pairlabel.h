#pragma once

#include <QLabel>
#include <QTimer>

// The blinking bar of the pairing page: it pulses while the dialog waits for the link button.
class PairLabel : public QLabel
{
    Q_OBJECT

public:
    static constexpr int kBlinkIntervalMs = 500;

    explicit PairLabel(QWidget *parent = nullptr);

    void start();
    void stop();
    bool isBlinking() const { return m_timer.isActive(); }
    int tick() const { return m_tick; }

private:
    void applyTick();

    QTimer m_timer;
    int m_tick = 1;
};
