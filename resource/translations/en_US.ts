<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US" sourcelanguage="zh_CN">
<context>
    <name>DevDataMgr</name>
    <message>
        <source>设备列表</source>
        <translation>Device list</translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>Brivon Lumen</source>
        <translation>Brivon Lumen</translation>
    </message>
</context>
</TS>
