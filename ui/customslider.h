#pragma once

#include <QSlider>
#include <QString>

class CustomPopup;

// A slider that shows its value in a bubble while hovered, reports press and release of the left
// button, and never reacts to the wheel (a wheel over a card scrolls the panel instead).
class CustomSlider : public QSlider
{
    Q_OBJECT

public:
    explicit CustomSlider(QWidget *parent = nullptr);
    explicit CustomSlider(Qt::Orientation orientation, QWidget *parent = nullptr);

    void setRatio(int ratio) { m_ratio = ratio; }
    int ratio() const { return m_ratio; }
    void setUnit(const QString &unit) { m_unit = unit; }
    QString unit() const { return m_unit; }
    CustomPopup *popup() const { return m_popup; }

signals:
    void sigSliderPressed();
    void sigSliderReleased();

public slots:
    virtual void updatePopup();

protected:
    // Where the pointer of the bubble belongs for the current value, in global coordinates.
    QPoint popupAnchor() const;

    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;

    CustomPopup *m_popup = nullptr;
    QString m_unit;
    int m_ratio = 1;

private:
    void init();
};

// A slider whose bubble shows the raw step: 0 is shown and reported as -1, which the lights read
// as "off" for stepped values.
class CustomStepSlider : public CustomSlider
{
    Q_OBJECT

public:
    explicit CustomStepSlider(QWidget *parent = nullptr);

signals:
    // Deliberately shares the name of QAbstractSlider::valueChanged: owners connecting by name get
    // the displayed step, not the raw position.
    void valueChanged(int value);

public slots:
    void updatePopup() override;
};
