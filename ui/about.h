#pragma once

#include <QDialog>

class QLabel;

// The about box of the settings menu: program version and the maker's notice.
class About : public QDialog
{
    Q_OBJECT

public:
    explicit About(QWidget *parent = nullptr);

private:
    QLabel *m_versionLabel = nullptr;
    QLabel *m_noticeLabel = nullptr;
};
