#pragma once

#include <QWidget>

class QSvgRenderer;
class QTimer;

// The reconnect icon: a click asks for a reconnect and spins the icon until the owner stops it.
class RotatingSvgWidget : public QWidget
{
    Q_OBJECT
    Q_PROPERTY(double rotation READ rotation WRITE setRotation)

public:
    explicit RotatingSvgWidget(QWidget *parent = nullptr);

    double rotation() const { return m_rotation; }
    void setRotation(double degrees);
    bool isRotating() const;

signals:
    void startRotation();
    void stopRotation();
    void reconnect_dev();

public slots:
    void onStartRotation();
    void onStopRotation();

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    void requestReconnect();

    double m_rotation = 0.0;
    QTimer *m_timer = nullptr;
    QSvgRenderer *m_renderer = nullptr;
};
