#pragma once

#include "updatecheck.h"

#include <QDialog>
#include <QString>

#include <functional>
#include <memory>

namespace Ui {
class UpdateDialog;
}
class DownloadFile;

// Offers a newer release, downloads its installer with progress and starts it.
class UpdateDialog : public QDialog
{
    Q_OBJECT

public:
    // Starts the downloaded installer; true when it was started.
    using InstallerLauncher = std::function<bool(const QString &path)>;

    explicit UpdateDialog(QWidget *parent = nullptr);
    ~UpdateDialog() override;

    // Replaces the way the installer is started (the platform's way by default).
    void setInstallerLauncher(InstallerLauncher launcher);

public slots:
    void onVersionMessage(const VersionData &data);
    void onSkipVersion();
    void onPromptLater();
    void onUpdate();
    void onCancel();
    void onDownloadFinished(const QString &path, bool isFinished);
    // Percent of a known total (any size), a busy bar while the total is unknown (totalBytes <= 0).
    void onDownloadProgress(qlonglong bytesRead, qlonglong totalBytes);

    // Closing the window (Esc, the title bar) while downloading cancels the download.
    void reject() override;

signals:
    // A notice for the main window's message box: the download did not match the offer, or the
    // installer could not be started.
    void sigMessage(const QString &message);

private:
    void showTip();
    void showChoices(bool visible);

    std::unique_ptr<Ui::UpdateDialog> ui;
    std::unique_ptr<DownloadFile> downloadFile;
    VersionData offer;
    InstallerLauncher launcher;
};
