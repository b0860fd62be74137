#include "blelink.h"

#include <QDebug>
#include <QLowEnergyDescriptor>

BleLink::BleLink(const QString &devAddr, const QBluetoothDeviceInfo &info, const BleProfile &profile,
                 QObject *parent)
    : QObject(parent), m_addr(devAddr), m_info(info), m_profile(profile)
{
    m_setUpTimer.setSingleShot(true);
    m_setUpTimer.setInterval(SetUpTimeoutMs);
    connect(&m_setUpTimer, &QTimer::timeout, this, [this] { fail(QStringLiteral("set-up timed out")); });
}

BleLink::~BleLink()
{
    close();
}

bool BleLink::start()
{
    if (m_state != State::Idle)
        return false;
    m_state = State::Connecting;
    m_controller = QLowEnergyController::createCentral(m_info, this);
    if (!m_controller) {
        fail(QStringLiteral("no controller"));
        return false;
    }
    connect(m_controller, &QLowEnergyController::connected, this, &BleLink::onConnected);
    connect(m_controller, &QLowEnergyController::discoveryFinished, this, &BleLink::onServicesDiscovered);
    connect(m_controller, &QLowEnergyController::disconnected, this,
            [this] { fail(QStringLiteral("disconnected")); });
    connect(m_controller, &QLowEnergyController::errorOccurred, this, [this](QLowEnergyController::Error error) {
        fail(QStringLiteral("controller error %1 (%2)").arg(int(error)).arg(m_controller->errorString()));
    });
    m_setUpTimer.start();
    m_controller->connectToDevice();
    // Without an adapter the controller fails inside connectToDevice.
    return m_state != State::Dead;
}

void BleLink::write(const QByteArray &data)
{
    if (m_state != State::Ready || !m_service || data.isEmpty())
        return;
    if (data.size() > MaxWriteBytes) {
        qWarning().noquote() << "[BleLink::write]: addr:" << m_addr << "frame too long:" << data.size();
        return;
    }
    m_service->writeCharacteristic(m_write, data, m_writeMode);
}

void BleLink::close()
{
    m_reportLoss = false;
    tearDown();
}

void BleLink::tearDown()
{
    m_state = State::Dead;
    m_setUpTimer.stop();
    if (m_service) {
        disconnect(m_service, nullptr, this, nullptr);
        m_service->deleteLater();
        m_service = nullptr;
    }
    if (m_controller) {
        disconnect(m_controller, nullptr, this, nullptr);
        m_controller->disconnectFromDevice();
        // Not deleted here: close() may run inside one of the controller's own signals.
        m_controller->setParent(nullptr);
        m_controller->deleteLater();
        m_controller = nullptr;
    }
}

void BleLink::onConnected()
{
    if (m_state != State::Connecting)
        return;
    m_state = State::Discovering;
    m_controller->discoverServices();
}

void BleLink::onServicesDiscovered()
{
    if (m_state != State::Discovering)
        return;
    m_service = m_controller->createServiceObject(m_profile.service, this);
    if (!m_service) {
        fail(QStringLiteral("service %1 not found").arg(m_profile.service.toString()));
        return;
    }
    connect(m_service, &QLowEnergyService::stateChanged, this, &BleLink::onServiceStateChanged);
    connect(m_service, &QLowEnergyService::descriptorWritten, this, &BleLink::onDescriptorWritten);
    connect(m_service, &QLowEnergyService::characteristicChanged, this, &BleLink::onCharacteristicChanged);
    connect(m_service, &QLowEnergyService::errorOccurred, this, [this](QLowEnergyService::ServiceError error) {
        // Write failures after set-up are not reported to the program; the link stays.
        if (m_state == State::Ready) {
            qWarning().noquote() << "[BleLink::errorOccurred]: addr:" << m_addr << "service error:" << int(error);
            return;
        }
        fail(QStringLiteral("service error %1").arg(int(error)));
    });
    m_service->discoverDetails();
}

void BleLink::onServiceStateChanged(QLowEnergyService::ServiceState state)
{
    if (m_state != State::Discovering || state != QLowEnergyService::RemoteServiceDiscovered)
        return;
    m_write = m_service->characteristic(m_profile.writeCharacteristic);
    const QLowEnergyCharacteristic notify = m_service->characteristic(m_profile.notifyCharacteristic);
    if (!m_write.isValid() || !notify.isValid()) {
        fail(QStringLiteral("write or notify characteristic missing"));
        return;
    }
    const auto writeProps = m_write.properties();
    if (writeProps & QLowEnergyCharacteristic::WriteNoResponse)
        m_writeMode = QLowEnergyService::WriteWithoutResponse;
    else if (writeProps & QLowEnergyCharacteristic::Write)
        m_writeMode = QLowEnergyService::WriteWithResponse;
    else {
        fail(QStringLiteral("write characteristic is not writable"));
        return;
    }

    const QLowEnergyDescriptor cccd = notify.clientCharacteristicConfiguration();
    if (!cccd.isValid()) {
        // Some lights notify without a configuration descriptor; try anyway.
        qWarning().noquote() << "[BleLink::onServiceStateChanged]: addr:" << m_addr << "no CCCD on notify characteristic";
        becomeReady();
        return;
    }
    const bool indicateOnly = !(notify.properties() & QLowEnergyCharacteristic::Notify)
            && (notify.properties() & QLowEnergyCharacteristic::Indicate);
    m_state = State::EnablingNotify;
    m_service->writeDescriptor(cccd, indicateOnly ? QLowEnergyCharacteristic::CCCDEnableIndication
                                                  : QLowEnergyCharacteristic::CCCDEnableNotification);
}

void BleLink::onDescriptorWritten(const QLowEnergyDescriptor &descriptor, const QByteArray &)
{
    if (m_state == State::EnablingNotify
            && descriptor.type() == QBluetoothUuid::DescriptorType::ClientCharacteristicConfiguration)
        becomeReady();
}

void BleLink::onCharacteristicChanged(const QLowEnergyCharacteristic &characteristic, const QByteArray &value)
{
    if (m_state == State::Ready && characteristic.uuid() == m_profile.notifyCharacteristic)
        emit notification(m_addr, value);
}

void BleLink::becomeReady()
{
    m_setUpTimer.stop();
    m_state = State::Ready;
    qDebug().noquote() << "[BleLink::becomeReady]: addr:" << m_addr << "protocolType:" << m_profile.protocolType;
    emit ready(m_addr);
}

void BleLink::fail(const QString &why)
{
    if (m_state == State::Dead)
        return;
    qWarning().noquote() << "[BleLink::fail]: addr:" << m_addr << "reason:" << why;
    tearDown();
    // Queued so that the owner never deletes the link inside one of its own calls.
    QMetaObject::invokeMethod(this, [this] {
        if (m_reportLoss)
            emit lost(m_addr);
    }, Qt::QueuedConnection);
}
