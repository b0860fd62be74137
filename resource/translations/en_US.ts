<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US" sourcelanguage="zh_CN">
<context>
    <name>About</name>
    <message>
        <source>关于</source>
        <translation>About</translation>
    </message>
    <message>
        <source>Version: %1</source>
        <translation>Version: %1</translation>
    </message>
    <message>
        <source>版权所有 © Brivon，保留所有权利。</source>
        <translation>Copyright © Brivon. All rights reserved.</translation>
    </message>
</context>
<context>
    <name>AddDeviceWidget</name>
    <message>
        <source>连接</source>
        <translation>Connect</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Add Device</translation>
    </message>
</context>
<context>
    <name>CloseButton</name>
    <message>
        <source>关闭</source>
        <translation>Close</translation>
    </message>
</context>
<context>
    <name>ControlItemWidget</name>
    <message>
        <source>彩光</source>
        <translation>Color</translation>
    </message>
    <message>
        <source>光效</source>
        <translation>Effects</translation>
    </message>
    <message>
        <source>已连接</source>
        <translation>Connected</translation>
    </message>
    <message>
        <source>未连接</source>
        <translation>Offline</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Delete</translation>
    </message>
    <message>
        <source>重新连接</source>
        <translation>Reconnect</translation>
    </message>
    <message>
        <source>开关</source>
        <translation>Power</translation>
    </message>
    <message>
        <source>亮度</source>
        <translation>Brightness</translation>
    </message>
    <message>
        <source>色温</source>
        <translation>Colour temperature</translation>
    </message>
    <message>
        <source>重命名</source>
        <translation>Rename</translation>
    </message>
    <message>
        <source>设备名称：</source>
        <translation>Device name:</translation>
    </message>
</context>
<context>
    <name>ControlWidget</name>
    <message>
        <source>设备列表</source>
        <translation>Device List</translation>
    </message>
</context>
<context>
    <name>DeleteTipsWidget</name>
    <message>
        <source>不再询问</source>
        <translation>Don&apos;t ask again</translation>
    </message>
    <message>
        <source>确认</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
</context>
<context>
    <name>DevDataMgr</name>
    <message>
        <source>设备列表</source>
        <translation>Device List</translation>
    </message>
</context>
<context>
    <name>DevInfoWidget</name>
    <message>
        <source>添加设备</source>
        <translation>Add Device</translation>
    </message>
    <message>
        <source>确认删除该设备？</source>
        <translation>Delete this device?</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Delete</translation>
    </message>
    <message>
        <source>设备列表</source>
        <translation>Device List</translation>
    </message>
    <message>
        <source>确认删除设备“%1”？它将从所有群组中移除并被遗忘。</source>
        <translation>Delete device “%1”? It is removed from every group and forgotten.</translation>
    </message>
    <message>
        <source>确认将设备“%1”移出群组“%2”？设备本身仍会保留。</source>
        <translation>Remove device “%1” from group “%2”? The device itself is kept.</translation>
    </message>
</context>
<context>
    <name>DevNameGroupWidget</name>
    <message>
        <source>确认删除该群组？</source>
        <translation>Delete this group?</translation>
    </message>
    <message>
        <source>创建群组</source>
        <translation>New Group</translation>
    </message>
    <message>
        <source>设备列表</source>
        <translation>Device List</translation>
    </message>
    <message>
        <source>重命名</source>
        <translation>Rename</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Delete</translation>
    </message>
</context>
<context>
    <name>DeviceItem</name>
    <message>
        <source>删除</source>
        <translation>Delete</translation>
    </message>
    <message>
        <source>在线</source>
        <translation>Online</translation>
    </message>
    <message>
        <source>离线</source>
        <translation>Offline</translation>
    </message>
</context>
<context>
    <name>DeviceNameWidget</name>
    <message>
        <source>添加</source>
        <translation>Add</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Add Device</translation>
    </message>
</context>
<context>
    <name>DeviceWidget</name>
    <message>
        <source>选择要操作的设备</source>
        <translation>Select a device to control</translation>
    </message>
    <message>
        <source>搜索设备......</source>
        <translation>Searching for devices...</translation>
    </message>
    <message>
        <source>未找到设备</source>
        <translation>No devices found</translation>
    </message>
</context>
<context>
    <name>GroupHeaderWidget</name>
    <message>
        <source>群组亮度</source>
        <translation>Group brightness</translation>
    </message>
    <message>
        <source>群组开关</source>
        <translation>Group power</translation>
    </message>
</context>
<context>
    <name>HueBridgeDialog</name>
    <message>
        <source>Philips Hue桥接配对</source>
        <translation>Pair a Philips Hue Bridge</translation>
    </message>
    <message>
        <source>桥接器列表：</source>
        <translation>Bridges:</translation>
    </message>
    <message>
        <source>请选择一个桥接</source>
        <translation>Please select a bridge</translation>
    </message>
    <message>
        <source>已选择一个桥接</source>
        <translation>Bridge selected</translation>
    </message>
    <message>
        <source>现在开始配对？</source>
        <translation>Start pairing now?</translation>
    </message>
    <message>
        <source>配对</source>
        <translation>Pair</translation>
    </message>
    <message>
        <source>正在配对...</source>
        <translation>Pairing...</translation>
    </message>
    <message>
        <source>现在请按桥器接上的链接按钮</source>
        <translation>Now press the link button on the bridge</translation>
    </message>
    <message>
        <source>配对成功</source>
        <translation>Pairing successful</translation>
    </message>
    <message>
        <source>可从左侧列表选择新的桥接器进行配对</source>
        <translation>You can pick another bridge from the list on the left to pair</translation>
    </message>
    <message>
        <source>配对失败</source>
        <translation>Pairing failed</translation>
    </message>
    <message>
        <source>重试</source>
        <translation>Retry</translation>
    </message>
</context>
<context>
    <name>LightEffectSetDialog</name>
    <message>
        <source>光效</source>
        <translation>Light Effects</translation>
    </message>
</context>
<context>
    <name>MessageBoxWidget</name>
    <message>
        <source>确认</source>
        <translation>OK</translation>
    </message>
</context>
<context>
    <name>MiddleWidget</name>
    <message>
        <source>添加设备</source>
        <translation>Add Device</translation>
    </message>
    <message>
        <source>选择要操作的设备</source>
        <translation>Select a device to control</translation>
    </message>
    <message>
        <source>单击下方按钮以添加设备</source>
        <translation>Click the button below to add a device</translation>
    </message>
</context>
<context>
    <name>MinButton</name>
    <message>
        <source>最小化</source>
        <translation>Minimize</translation>
    </message>
</context>
<context>
    <name>ModifyTitleBar</name>
    <message>
        <source>群组设置</source>
        <translation>Group Settings</translation>
    </message>
    <message>
        <source>关于</source>
        <translation>About</translation>
    </message>
    <message>
        <source>检查更新</source>
        <translation>Check for Updates</translation>
    </message>
    <message>
        <source>退出</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Add Device</translation>
    </message>
    <message>
        <source>设置</source>
        <translation>Settings</translation>
    </message>
</context>
<context>
    <name>ModifyWindow</name>
    <message>
        <source>Brivon Lumen</source>
        <translation>Brivon Lumen</translation>
    </message>
    <message>
        <source>打开主界面</source>
        <translation>Open Main Window</translation>
    </message>
    <message>
        <source>退出</source>
        <translation>Quit</translation>
    </message>
    <message>
        <source>蓝牙未打开，请先在系统设置中打开蓝牙</source>
        <translation>Bluetooth is off. Please turn it on in the system settings first.</translation>
    </message>
    <message>
        <source>蓝牙不存在</source>
        <translation>No Bluetooth adapter found</translation>
    </message>
</context>
<context>
    <name>QColorDialog</name>
    <message>
        <source>&amp;Pick Screen Color</source>
        <translation>&amp;Pick Screen Color</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>Brivon Lumen</source>
        <translation>Brivon Lumen</translation>
    </message>
</context>
<context>
    <name>ScanWidget</name>
    <message>
        <source>连接</source>
        <translation>Connect</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>配对 Philips Hue 桥接器</source>
        <translation>Pair a Philips Hue Bridge</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Add Device</translation>
    </message>
    <message>
        <source>查找局域网中的 Philips Hue 桥接器并配对</source>
        <translation>Find Philips Hue bridges on the local network and pair one</translation>
    </message>
    <message>
        <source>重新搜索</source>
        <translation>Scan again</translation>
    </message>
</context>
<context>
    <name>SettingWindow</name>
    <message>
        <source>群组设置</source>
        <translation>Group Settings</translation>
    </message>
</context>
<context>
    <name>UpdateCheck</name>
    <message>
        <source>更新检查请求未响应</source>
        <translation>The update check got no response</translation>
    </message>
    <message>
        <source>返回的更新数据为空</source>
        <translation>The update server returned no data</translation>
    </message>
    <message>
        <source>返回的更新数据不完整</source>
        <translation>The update data received is incomplete</translation>
    </message>
    <message>
        <source>已是最新版本，不需要更新</source>
        <translation>You already have the latest version; no update is needed</translation>
    </message>
</context>
<context>
    <name>UpdateDialog</name>
    <message>
        <source>软件更新</source>
        <translation>Software Update</translation>
    </message>
    <message>
        <source>跳过此版本</source>
        <translation>Skip This Version</translation>
    </message>
    <message>
        <source>稍后提示</source>
        <translation>Remind Me Later</translation>
    </message>
    <message>
        <source>安装更新</source>
        <translation>Install Update</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Cancel</translation>
    </message>
    <message>
        <source>Brivon Lumen</source>
        <translation>Brivon Lumen</translation>
    </message>
    <message>
        <source>现在可用 -- 您的当前版本是 </source>
        <translation> is now available -- your current version is </translation>
    </message>
    <message>
        <source> . 是否要立即安装？</source>
        <translation>&#xa0;. Would you like to install it now?</translation>
    </message>
    <message>
        <source>下载失败,可能是新版本地址异常!</source>
        <translation>Download failed. The address of the new version may be wrong!</translation>
    </message>
    <message>
        <source>下载的安装程序与更新服务器给出的大小或 MD5 不符，已删除，未启动。</source>
        <translation>The downloaded installer does not match the size or MD5 given by the update server. It was deleted and not started.</translation>
    </message>
    <message>
        <source>无法启动安装程序。文件保留在：%1</source>
        <translation>The installer could not be started. The file was kept at: %1</translation>
    </message>
</context>
</TS>
