#include "updatedialog.h"
#include "ui_updatedialog.h"

#include "appdatapaths.h"
#include "downloadfile.h"
#include "updateplatform.h"

#include <QDebug>
#include <QFile>
#include <QProcess>

#include <cmath>

namespace {

bool startDetachedInstaller(const QString &path)
{
    return QProcess::startDetached(path, QStringList());
}

} // namespace

UpdateDialog::UpdateDialog(QWidget *parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui::UpdateDialog>())
    , downloadFile(std::make_unique<DownloadFile>())
    , launcher(startDetachedInstaller)
{
    ui->setupUi(this);
    setFixedSize(700, 600);
    setWindowFlag(Qt::WindowContextHelpButtonHint, false);
    ui->label_tip->hide();
    ui->pushButton_cancel->hide();

    connect(ui->pushButton_update, &QPushButton::clicked, this, &UpdateDialog::onUpdate);
    connect(ui->pushButton_skip, &QPushButton::clicked, this, &UpdateDialog::onSkipVersion);
    connect(ui->pushButton_promptLater, &QPushButton::clicked, this, &UpdateDialog::onPromptLater);
    connect(ui->pushButton_cancel, &QPushButton::clicked, this, &UpdateDialog::onCancel);
    connect(downloadFile.get(), &DownloadFile::currentProgress, this,
            [this](qlonglong, qlonglong, double progress) {
                // An unknown or zero total gives no usable ratio; converting it to int is undefined.
                if (std::isfinite(progress))
                    ui->progressBar->setValue(int(std::trunc(progress * 100)));
            });
    connect(downloadFile.get(), &DownloadFile::downloadFinished, this, &UpdateDialog::onDownloadFinished);
}

UpdateDialog::~UpdateDialog() = default;

void UpdateDialog::setInstallerLauncher(InstallerLauncher newLauncher)
{
    launcher = newLauncher ? std::move(newLauncher) : InstallerLauncher(startDetachedInstaller);
}

void UpdateDialog::onVersionMessage(const VersionData &data)
{
    // An offer that arrives while one is on screen (or downloading) must not disturb it.
    if (isVisible())
        return;

    show();
    ui->label_tip->hide();
    ui->progressBar->show();
    ui->progressBar->setValue(0);

    ui->label_desc->setText(tr("Brivon Lumen") + QStringLiteral(" ") + data.version
                            + tr("现在可用 -- 您的当前版本是 ") + QString::fromLatin1(kCurrentVersion)
                            + tr(" . 是否要立即安装？"));
    ui->textEdit->setText(data.versionInfo);
    downloadUrl = data.downloadUrl;
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
    if (downloadUrl.isEmpty())
        return;

    const QString folder = downloadFolderPath();
    const QString fileName = downloadUrl.mid(downloadUrl.lastIndexOf(QLatin1Char('/')) + 1);
    if (!fileName.isEmpty() && QFile::exists(folder + fileName))
        QFile::remove(folder + fileName);

    // A retry after a failure shows its progress again.
    ui->label_tip->hide();
    ui->progressBar->show();
    ui->progressBar->setValue(0);
    if (downloadFile->startDownload(downloadUrl, folder)) {
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
        showTip();
        return;
    }

    if (!prepareInstaller(path))
        qDebug() << "[UpdateDialog::onDownloadFinished]: cannot mark executable, path:" << path;
    if (!launcher(path))
        qDebug() << "[UpdateDialog::onDownloadFinished]: installer did not start, path:" << path;
    showChoices(true);
    close();
}

void UpdateDialog::reject()
{
    downloadFile->cancelDownload();
    showChoices(true);
    QDialog::reject();
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
