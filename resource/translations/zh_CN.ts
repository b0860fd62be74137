<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="zh_CN" sourcelanguage="zh_CN">
<context>
    <name>DevDataMgr</name>
    <message>
        <source>设备列表</source>
        <translation type="unfinished"></translation>
    </message>
</context>
<context>
    <name>QObject</name>
    <message>
        <source>Brivon Lumen</source>
        <translation type="unfinished"></translation>
    </message>
</context>
</TS>
