<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de_DE" sourcelanguage="zh_CN">
<context>
    <name>About</name>
    <message>
        <source>关于</source>
        <translation>Über</translation>
    </message>
    <message>
        <source>Version: %1</source>
        <translation>Version: %1</translation>
    </message>
    <message>
        <source>版权所有 © Brivon，保留所有权利。</source>
        <translation>Copyright © Brivon. Alle Rechte vorbehalten.</translation>
    </message>
</context>
<context>
    <name>AddDeviceWidget</name>
    <message>
        <source>连接</source>
        <translation>Verbinden</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Gerät hinzufügen</translation>
    </message>
</context>
<context>
    <name>CloseButton</name>
    <message>
        <source>关闭</source>
        <translation>Schließen</translation>
    </message>
</context>
<context>
    <name>ControlItemWidget</name>
    <message>
        <source>彩光</source>
        <translation>Farbe</translation>
    </message>
    <message>
        <source>光效</source>
        <translation>Effekte</translation>
    </message>
    <message>
        <source>已连接</source>
        <translation>Verbunden</translation>
    </message>
    <message>
        <source>未连接</source>
        <translation>Getrennt</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>重新连接</source>
        <translation>Neu verbinden</translation>
    </message>
    <message>
        <source>开关</source>
        <translation>Ein/Aus</translation>
    </message>
    <message>
        <source>亮度</source>
        <translation>Helligkeit</translation>
    </message>
    <message>
        <source>色温</source>
        <translation>Farbtemperatur</translation>
    </message>
    <message>
        <source>重命名</source>
        <translation>Umbenennen</translation>
    </message>
    <message>
        <source>设备名称：</source>
        <translation>Gerätename:</translation>
    </message>
</context>
<context>
    <name>ControlWidget</name>
    <message>
        <source>设备列表</source>
        <translation>Geräteliste</translation>
    </message>
</context>
<context>
    <name>DeleteTipsWidget</name>
    <message>
        <source>不再询问</source>
        <translation>Nicht mehr fragen</translation>
    </message>
    <message>
        <source>确认</source>
        <translation>OK</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Abbrechen</translation>
    </message>
</context>
<context>
    <name>DevDataMgr</name>
    <message>
        <source>设备列表</source>
        <translation>Geräteliste</translation>
    </message>
</context>
<context>
    <name>DevInfoWidget</name>
    <message>
        <source>添加设备</source>
        <translation>Gerät hinzufügen</translation>
    </message>
    <message>
        <source>确认删除该设备？</source>
        <translation>Dieses Gerät löschen?</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Löschen</translation>
    </message>
    <message>
        <source>设备列表</source>
        <translation>Geräteliste</translation>
    </message>
    <message>
        <source>确认删除设备“%1”？它将从所有群组中移除并被遗忘。</source>
        <translation>Gerät „%1“ löschen? Es wird aus allen Gruppen entfernt und vergessen.</translation>
    </message>
    <message>
        <source>确认将设备“%1”移出群组“%2”？设备本身仍会保留。</source>
        <translation>Gerät „%1“ aus der Gruppe „%2“ entfernen? Das Gerät selbst bleibt erhalten.</translation>
    </message>
</context>
<context>
    <name>DevNameGroupWidget</name>
    <message>
        <source>确认删除该群组？</source>
        <translation>Diese Gruppe löschen?</translation>
    </message>
    <message>
        <source>创建群组</source>
        <translation>Neue Gruppe</translation>
    </message>
    <message>
        <source>设备列表</source>
        <translation>Geräteliste</translation>
    </message>
    <message>
        <source>重命名</source>
        <translation>Umbenennen</translation>
    </message>
    <message>
        <source>删除</source>
        <translation>Löschen</translation>
    </message>
</context>
<context>
    <name>DeviceItem</name>
    <message>
        <source>删除</source>
        <translation>Löschen</translation>
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
        <translation>Hinzufügen</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Gerät hinzufügen</translation>
    </message>
</context>
<context>
    <name>DeviceWidget</name>
    <message>
        <source>选择要操作的设备</source>
        <translation>Gerät zum Steuern auswählen</translation>
    </message>
    <message>
        <source>搜索设备......</source>
        <translation>Geräte werden gesucht ...</translation>
    </message>
    <message>
        <source>未找到设备</source>
        <translation>Keine Geräte gefunden</translation>
    </message>
</context>
<context>
    <name>GroupHeaderWidget</name>
    <message>
        <source>群组亮度</source>
        <translation>Gruppenhelligkeit</translation>
    </message>
    <message>
        <source>群组开关</source>
        <translation>Gruppe ein/aus</translation>
    </message>
</context>
<context>
    <name>HueBridgeDialog</name>
    <message>
        <source>Philips Hue桥接配对</source>
        <translation>Philips Hue Bridge koppeln</translation>
    </message>
    <message>
        <source>桥接器列表：</source>
        <translation>Bridges:</translation>
    </message>
    <message>
        <source>请选择一个桥接</source>
        <translation>Bitte eine Bridge auswählen</translation>
    </message>
    <message>
        <source>已选择一个桥接</source>
        <translation>Bridge ausgewählt</translation>
    </message>
    <message>
        <source>现在开始配对？</source>
        <translation>Jetzt koppeln?</translation>
    </message>
    <message>
        <source>配对</source>
        <translation>Koppeln</translation>
    </message>
    <message>
        <source>正在配对...</source>
        <translation>Kopplung läuft ...</translation>
    </message>
    <message>
        <source>现在请按桥器接上的链接按钮</source>
        <translation>Drücken Sie jetzt die Link-Taste auf der Bridge</translation>
    </message>
    <message>
        <source>配对成功</source>
        <translation>Kopplung erfolgreich</translation>
    </message>
    <message>
        <source>可从左侧列表选择新的桥接器进行配对</source>
        <translation>Links können Sie eine weitere Bridge zum Koppeln auswählen</translation>
    </message>
    <message>
        <source>配对失败</source>
        <translation>Kopplung fehlgeschlagen</translation>
    </message>
    <message>
        <source>重试</source>
        <translation>Wiederholen</translation>
    </message>
</context>
<context>
    <name>LightEffectSetDialog</name>
    <message>
        <source>光效</source>
        <translation>Lichteffekte</translation>
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
        <translation>Gerät hinzufügen</translation>
    </message>
    <message>
        <source>选择要操作的设备</source>
        <translation>Gerät zum Steuern auswählen</translation>
    </message>
    <message>
        <source>单击下方按钮以添加设备</source>
        <translation>Mit der Schaltfläche unten ein Gerät hinzufügen</translation>
    </message>
</context>
<context>
    <name>MinButton</name>
    <message>
        <source>最小化</source>
        <translation>Minimieren</translation>
    </message>
</context>
<context>
    <name>ModifyTitleBar</name>
    <message>
        <source>群组设置</source>
        <translation>Gruppeneinstellungen</translation>
    </message>
    <message>
        <source>关于</source>
        <translation>Über</translation>
    </message>
    <message>
        <source>检查更新</source>
        <translation>Nach Updates suchen</translation>
    </message>
    <message>
        <source>退出</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Gerät hinzufügen</translation>
    </message>
    <message>
        <source>设置</source>
        <translation>Einstellungen</translation>
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
        <translation>Hauptfenster öffnen</translation>
    </message>
    <message>
        <source>退出</source>
        <translation>Beenden</translation>
    </message>
    <message>
        <source>蓝牙未打开，请先在系统设置中打开蓝牙</source>
        <translation>Bluetooth ist ausgeschaltet. Bitte zuerst in den Systemeinstellungen einschalten.</translation>
    </message>
    <message>
        <source>蓝牙不存在</source>
        <translation>Kein Bluetooth-Adapter gefunden</translation>
    </message>
</context>
<context>
    <name>QColorDialog</name>
    <message>
        <source>&amp;Pick Screen Color</source>
        <translation>&amp;Farbe vom Bildschirm wählen</translation>
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
        <translation>Verbinden</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Abbruch</translation>
    </message>
    <message>
        <source>配对 Philips Hue 桥接器</source>
        <translation>Philips Hue Bridge koppeln</translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation>Gerät hinzufügen</translation>
    </message>
    <message>
        <source>查找局域网中的 Philips Hue 桥接器并配对</source>
        <translation>Philips Hue Bridges im lokalen Netzwerk suchen und koppeln</translation>
    </message>
    <message>
        <source>重新搜索</source>
        <translation>Erneut suchen</translation>
    </message>
</context>
<context>
    <name>SettingWindow</name>
    <message>
        <source>群组设置</source>
        <translation>Gruppeneinstellungen</translation>
    </message>
</context>
<context>
    <name>UpdateCheck</name>
    <message>
        <source>更新检查请求未响应</source>
        <translation>Die Update-Prüfung hat keine Antwort erhalten</translation>
    </message>
    <message>
        <source>返回的更新数据为空</source>
        <translation>Der Update-Server hat keine Daten geliefert</translation>
    </message>
    <message>
        <source>返回的更新数据不完整</source>
        <translation>Die empfangenen Update-Daten sind unvollständig</translation>
    </message>
    <message>
        <source>已是最新版本，不需要更新</source>
        <translation>Sie verwenden bereits die neueste Version, kein Update nötig</translation>
    </message>
</context>
<context>
    <name>UpdateDialog</name>
    <message>
        <source>软件更新</source>
        <translation>Software-Update</translation>
    </message>
    <message>
        <source>跳过此版本</source>
        <translation>Version überspringen</translation>
    </message>
    <message>
        <source>稍后提示</source>
        <translation>Später erinnern</translation>
    </message>
    <message>
        <source>安装更新</source>
        <translation>Update installieren</translation>
    </message>
    <message>
        <source>取消</source>
        <translation>Abbrechen</translation>
    </message>
    <message>
        <source>Brivon Lumen</source>
        <translation>Brivon Lumen</translation>
    </message>
    <message>
        <source>现在可用 -- 您的当前版本是 </source>
        <translation> ist jetzt verfügbar -- Ihre aktuelle Version ist </translation>
    </message>
    <message>
        <source> . 是否要立即安装？</source>
        <translation>&#xa0;. Möchten Sie es jetzt installieren?</translation>
    </message>
    <message>
        <source>下载失败,可能是新版本地址异常!</source>
        <translation>Download fehlgeschlagen. Die Adresse der neuen Version ist möglicherweise fehlerhaft!</translation>
    </message>
    <message>
        <source>下载的安装程序与更新服务器给出的大小或 MD5 不符，已删除，未启动。</source>
        <translation>Das heruntergeladene Installationsprogramm stimmt nicht mit der vom Update-Server angegebenen Größe oder MD5-Prüfsumme überein. Es wurde gelöscht und nicht gestartet.</translation>
    </message>
    <message>
        <source>无法启动安装程序。文件保留在：%1</source>
        <translation>Das Installationsprogramm konnte nicht gestartet werden. Die Datei liegt unter: %1</translation>
    </message>
</context>
</TS>
