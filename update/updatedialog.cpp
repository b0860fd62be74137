#include "updatedialog.h"
#include "ui_updatedialog.h"

#include "appdatapaths.h"
#include "downloadfile.h"
#include "updateplatform.h"

#include <QDebug>
#include <QDir>
#include <QLocale>

UpdateDialog::UpdateDialog(QWidget *parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::UpdateDialog>())
    , downloadFile(std::make_unique<DownloadFile>())
    , launcher(launchInstaller)
{
    ui->setupUi(this);
    // The version and the release notes come from the network: shown as they are, never as markup.
    ui->label_desc->setTextFormat(Qt::PlainText);
    ui->textEdit->setAcceptRichText(false);
    setFixedSize(700, 600);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    ui->label_tip->hide();
    ui->pushButton_cancel->hide();

    connect(ui->pushButton_update, &QPushButton::clicked, this, &UpdateDialog::onUpdate);
    connect(ui->pushButton_skip, &QPushButton::clicked, this, &UpdateDialog::onSkipVersion);
    connect(ui->pushButton_promptLater, &QPushButton::clicked, this, &UpdateDialog::onPromptLater);
    connect(ui->pushButton_cancel, &QPushButton::clicked, this, &UpdateDialog::onCancel);
    connect(downloadFile.get(), &DownloadFile::currentProgress, this,
            [this](qlonglong bytesRead, qlonglong totalBytes, double) { onDownloadProgress(bytesRead, totalBytes); });
    connect(downloadFile.get(), &DownloadFile::downloadFinished, this, &UpdateDialog::onDownloadFinished);
}

UpdateDialog::~UpdateDialog() = default;

void UpdateDialog::setInstallerLauncher(InstallerLauncher newLauncher)
{
    launcher = newLauncher ? std::move(newLauncher) : InstallerLauncher(launchInstaller);
}

void UpdateDialog::onVersionMessage(const VersionData &data)
{
    // An offer that arrives while one is on screen (or downloading) must not disturb it.
    if (isVisible())
        return;

    show();
    ui->label_tip->hide();
    onDownloadProgress(0, 1);
    ui->progressBar->show();

    ui->label_desc->setText(tr("Brivon Lumen") + QStringLiteral(" ") + data.version
                            + tr("现在可用 -- 您的当前版本是 ") + QString::fromLatin1(kCurrentVersion)
                            + tr(" . 是否要立即安装？"));
    ui->textEdit->setPlainText(data.versionInfo);
    offer = data;
}

void UpdateDialog::onSkipVersion()
{
    close();
}

void UpdateDialog::onPromptLater()
{
    close();
}

void UpdateDialog::onUpdate()
{
    if (offer.downloadUrl.isEmpty())
        return;

    // A retry after a failure shows its progress again. The download replaces an older file of the
    // same name itself, under a name it has made safe.
    ui->label_tip->hide();
    onDownloadProgress(0, 1);
    ui->progressBar->show();
    if (downloadFile->startDownload(offer.downloadUrl, downloadFolderPath(), offer.size, offer.md5)) {
        showChoices(false);
    } else {
        qDebug() << __FILE__ << "UpdateDialog::onUpdate" << "Failed to startDownload";
        showTip();
    }
}

void UpdateDialog::onCancel()
{
    downloadFile->cancelDownload();
    showChoices(true);
    close();
}

void UpdateDialog::onDownloadFinished(const QString &path, bool isFinished)
{
    ui->progressBar->hide();
    if (!isFinished) {
        if (downloadFile->lastFailure() == DownloadFile::Failure::Mismatch)
            emit sigMessage(tr("下载的安装程序与更新服务器给出的大小或 MD5 不符，已删除，未启动。"));
        showTip();
        return;
    }

    if (!prepareInstaller(path) || !launcher(path)) {
        // The file stays, so that the user can start it by hand.
        qDebug() << "[UpdateDialog::onDownloadFinished]: installer did not start, path:" << path;
        emit sigMessage(tr("无法启动安装程序。文件保留在：%1").arg(QDir::toNativeSeparators(path)));
        showChoices(true);
        return;
    }
    qDebug() << "[UpdateDialog::onDownloadFinished]: installer started, path:" << path;
    showChoices(true);
    close();
}

void UpdateDialog::reject()
{
    downloadFile->cancelDownload();
    showChoices(true);
    QDialog::reject();
}

void UpdateDialog::onDownloadProgress(qlonglong bytesRead, qlonglong totalBytes)
{
    if (totalBytes <= 0) {
        // Unknown length: a busy bar, with the bytes so far as its tool tip.
        ui->progressBar->setRange(0, 0);
        ui->progressBar->setToolTip(QLocale().formattedDataSize(qMax(qint64(0), bytesRead)));
        return;
    }
    ui->progressBar->setToolTip(QString());
    ui->progressBar->setRange(0, 100);
    ui->progressBar->setValue(int(qBound(qint64(0), qint64(bytesRead) * 100 / qint64(totalBytes), qint64(100))));
}

void UpdateDialog::showTip()
{
    ui->label_tip->setText(tr("下载失败,可能是新版本地址异常!"));
    ui->label_tip->show();
    showChoices(true);
}

void UpdateDialog::showChoices(bool visible)
{
    ui->widget_3->setVisible(visible);
    ui->pushButton_cancel->setVisible(!visible);
}
