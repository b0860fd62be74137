#pragma once

#include <QWidget>

class QTimer;

// A white three-quarter ring that turns while something is being searched for.
class ZrProcessBar : public QWidget
{
    Q_OBJECT

public:
    explicit ZrProcessBar(QWidget *parent = nullptr);
    ~ZrProcessBar() override;

    void startAnimation();
    void stopAnimation();
    double angle() const { return m_angle; }
    bool isAnimating() const;

public slots:
    void updateRotation();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    double m_angle = 0.0;
    QTimer *m_timer = nullptr;
};
