<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN" sourcelanguage="zh_CN">
<context>
    <name>About</name>
    <message>
        <source>关于</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Version: %1</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>版权所有 © Brivon，保留所有权利。</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>AddDeviceWidget</name>
    <message>
        <source>连接</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>取消</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ControlItemWidget</name>
    <message>
        <source>彩光</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>光效</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>已连接</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>未连接</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>删除</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ControlWidget</name>
    <message>
        <source>设备列表</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DeleteTipsWidget</name>
    <message>
        <source>不再询问</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>确认</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>取消</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DevDataMgr</name>
    <message>
        <source>设备列表</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DeviceNameWidget</name>
    <message>
        <source>添加</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>取消</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>DeviceWidget</name>
    <message>
        <source>选择要操作的设备</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>搜索设备......</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>HueBridgeDialog</name>
    <message>
        <source>Philips Hue桥接配对</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>桥接器列表：</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>请选择一个桥接</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>已选择一个桥接</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>现在开始配对？</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>配对</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>正在配对...</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>现在请按桥器接上的链接按钮</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>配对成功</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>可从左侧列表选择新的桥接器进行配对</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>配对失败</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>重试</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>LightEffectSetDialog</name>
    <message>
        <source>光效</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MessageBoxWidget</name>
    <message>
        <source>确认</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>MiddleWidget</name>
    <message>
        <source>添加设备</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>选择要操作的设备</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>单击下方按钮以添加设备</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>QColorDialog</name>
    <message>
        <source>&amp;Pick Screen Color</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>ScanWidget</name>
    <message>
        <source>连接</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>取消</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>配对 Philips Hue 桥接器</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>添加设备</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>查找局域网中的 Philips Hue 桥接器并配对</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>UpdateCheck</name>
    <message>
        <source>更新检查请求未响应</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>返回的更新数据为空</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>返回的更新数据不完整</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>已是最新版本，不需要更新</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>UpdateDialog</name>
    <message>
        <source>软件更新</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>跳过此版本</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>稍后提示</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>安装更新</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>取消</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>Brivon Lumen</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>现在可用 -- 您的当前版本是 </source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source> . 是否要立即安装？</source>
        <translation type="unfinished"></translation>
    </message>
    <message>
        <source>下载失败,可能是新版本地址异常!</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
