#pragma once

#include <QDialog>
#include <QString>

class QCheckBox;
class QLabel;
class QPushButton;
class TipsBar;

// Asks before a light or a group is deleted. Ticking "don't ask again" and confirming clears the
// settings key, so later deletions of that kind go ahead without this box.
class DeleteTipsWidget : public QDialog
{
    Q_OBJECT

public:
    explicit DeleteTipsWidget(const QString &text, QWidget *parent = nullptr);

    // The item whose deletion is being confirmed; deleteItem() carries it.
    void setName(const QString &name) { m_name = name; }
    QString name() const { return m_name; }
    // The question, when it names what is deleted.
    void setText(const QString &text);
    QString text() const;
    // "global/ask_to_delete_device" or "global/ask_to_delete_group"; empty stores nothing.
    void setSettingKey(const QString &key) { m_settingKey = key; }
    QString settingKey() const { return m_settingKey; }

signals:
    void deleteItem(QString name);

public slots:
    void onOkClicked();
    void onCancelClicked();

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QLabel *m_label = nullptr;
    QCheckBox *m_checkBox = nullptr;
    QPushButton *m_okButton = nullptr;
    QPushButton *m_cancelButton = nullptr;
    TipsBar *m_tipsBar = nullptr;
    QString m_name;
    QString m_settingKey;
};
