#include "blelink.h"

#include <QDebug>
#include <QLowEnergyDescriptor>

namespace {

// Services every LE device carries; a light's own service is never one of them.
bool isStandardService(const QBluetoothUuid &uuid)
{
    bool ok = false;
    const quint16 short16 = uuid.toUInt16(&ok);
    return ok && (short16 == 0x1800 || short16 == 0x1801 || short16 == 0x180A || short16 == 0x180F);
}

} // namespace

BleLink::BleLink(const QString &devAddr, const QBluetoothDeviceInfo &info, const BleProfile &profile,
                 QObject *parent)
    : QObject(parent), m_addr(devAddr), m_info(info), m_profile(profile)
{
    m_setUpTimer.setSingleShot(true);
    m_setUpTimer.setInterval(SetUpTimeoutMs);
    connect(&m_setUpTimer, &QTimer::timeout, this, [this] { fail(QStringLiteral("set-up timed out")); });
    m_closeTimer.setSingleShot(true);
    m_closeTimer.setInterval(CloseTimeoutMs);
    connect(&m_closeTimer, &QTimer::timeout, this, [this] {
        qWarning().noquote() << "[BleLink::close]: addr:" << m_addr << "no disconnection after" << CloseTimeoutMs << "ms";
        finishShutDown();
    });
}

BleLink::~BleLink()
{
    m_reportLoss = false;
    if (m_service) {
        disconnect(m_service, nullptr, this, nullptr);
        delete m_service;
        m_service = nullptr;
    }
    if (m_controller) {
        disconnect(m_controller, nullptr, this, nullptr);
        // Still ask the stack to let the light go: nobody will wait for it any more.
        if (m_controller->state() != QLowEnergyController::UnconnectedState)
            m_controller->disconnectFromDevice();
        delete m_controller;
        m_controller = nullptr;
    }
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
        if (error == QLowEnergyController::UnknownRemoteDeviceError && m_state == State::Connecting)
            m_deviceUnknown = true;
        fail(QStringLiteral("controller error %1 (%2)").arg(int(error)).arg(m_controller->errorString()));
    });
    m_setUpTimer.start();
    m_controller->connectToDevice();
    // Without an adapter the controller fails inside connectToDevice.
    return m_state != State::Dead && m_state != State::Closing;
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
    shutDown();
}

void BleLink::shutDown()
{
    if (m_state == State::Closing || m_state == State::Dead)
        return;
    m_state = State::Closing;
    m_setUpTimer.stop();
    if (m_service) {
        disconnect(m_service, nullptr, this, nullptr);
        m_service->deleteLater();
        m_service = nullptr;
    }
    if (!m_controller || m_controller->state() == QLowEnergyController::UnconnectedState) {
        // Queued so that the owner never deletes the link inside one of its own calls.
        QMetaObject::invokeMethod(this, &BleLink::finishShutDown, Qt::QueuedConnection);
        return;
    }
    disconnect(m_controller, nullptr, this, nullptr);
    connect(m_controller, &QLowEnergyController::stateChanged, this,
            [this](QLowEnergyController::ControllerState state) {
        if (state == QLowEnergyController::UnconnectedState)
            QMetaObject::invokeMethod(this, &BleLink::finishShutDown, Qt::QueuedConnection);
    });
    m_closeTimer.start();
    m_controller->disconnectFromDevice();
    if (m_controller->state() == QLowEnergyController::UnconnectedState)
        QMetaObject::invokeMethod(this, &BleLink::finishShutDown, Qt::QueuedConnection);
}

void BleLink::finishShutDown()
{
    if (m_state == State::Dead)
        return;
    m_state = State::Dead;
    m_closeTimer.stop();
    if (m_controller) {
        disconnect(m_controller, nullptr, this, nullptr);
        // Not deleted here: this may run inside one of the controller's own signals.
        m_controller->setParent(nullptr);
        m_controller->deleteLater();
        m_controller = nullptr;
    }
    if (m_reportLoss)
        emit lost(m_addr);
    else
        emit closed(m_addr);
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
    if (!m_profile.service.isNull()) {
        m_writeUuid = m_profile.writeCharacteristic;
        m_notifyUuid = m_profile.notifyCharacteristic;
        useService(m_profile.service);
        return;
    }
    m_state = State::Picking;
    m_candidates.clear();
    for (const QBluetoothUuid &uuid : m_controller->services()) {
        if (!isStandardService(uuid))
            m_candidates << uuid;
    }
    pickNextService();
}

void BleLink::pickNextService()
{
    if (m_service) {
        disconnect(m_service, nullptr, this, nullptr);
        m_service->deleteLater();
        m_service = nullptr;
    }
    if (m_candidates.isEmpty()) {
        fail(QStringLiteral("no service with one writable and one notifying characteristic"));
        return;
    }
    useService(m_candidates.takeFirst());
}

void BleLink::useService(const QBluetoothUuid &service)
{
    m_serviceUuid = service;
    m_service = m_controller->createServiceObject(service, this);
    if (!m_service) {
        if (m_state == State::Picking)
            pickNextService();
        else
            fail(QStringLiteral("service %1 not found").arg(service.toString()));
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
        if (m_state == State::Picking) {
            pickNextService();
            return;
        }
        fail(QStringLiteral("service error %1").arg(int(error)));
    });
    m_service->discoverDetails();
}

void BleLink::onServiceStateChanged(QLowEnergyService::ServiceState state)
{
    if (state != QLowEnergyService::RemoteServiceDiscovered)
        return;
    if (m_state == State::Picking) {
        QList<QLowEnergyCharacteristic> writable;
        QList<QLowEnergyCharacteristic> notifying;
        for (const QLowEnergyCharacteristic &characteristic : m_service->characteristics()) {
            const auto props = characteristic.properties();
            if (props & (QLowEnergyCharacteristic::Write | QLowEnergyCharacteristic::WriteNoResponse))
                writable << characteristic;
            if (props & (QLowEnergyCharacteristic::Notify | QLowEnergyCharacteristic::Indicate))
                notifying << characteristic;
        }
        if (writable.size() != 1 || notifying.size() != 1) {
            pickNextService();
            return;
        }
        m_writeUuid = writable.first().uuid();
        m_notifyUuid = notifying.first().uuid();
        qInfo().noquote() << "[BleLink::pickService]: addr:" << m_addr << "profile:" << m_profile.name
                          << "service:" << m_serviceUuid.toString(QUuid::WithoutBraces)
                          << "write:" << m_writeUuid.toString(QUuid::WithoutBraces)
                          << "notify:" << m_notifyUuid.toString(QUuid::WithoutBraces);
        m_state = State::Discovering;
    }
    if (m_state != State::Discovering)
        return;
    m_write = m_service->characteristic(m_writeUuid);
    const QLowEnergyCharacteristic notify = m_service->characteristic(m_notifyUuid);
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
    if (m_state == State::Ready && characteristic.uuid() == m_notifyUuid)
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
    if (m_state == State::Closing || m_state == State::Dead)
        return;
    qWarning().noquote() << "[BleLink::fail]: addr:" << m_addr << "reason:" << why;
    shutDown();
}
