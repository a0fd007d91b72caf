<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
<context>
    <name>BoardDirectory</name>
    <message>
        <location filename="../directories/markets.cpp" line="280"/>
        <source>&lt;режим не найден&gt;</source>
        <translation>&lt;board not found&gt;</translation>
    </message>
    <message>
        <location filename="../directories/frame.cpp" line="16"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>BuySellDirectory</name>
    <message>
        <location filename="../directories/frame.cpp" line="10"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>CalendarDirectory</name>
    <message>
        <location filename="../directories/sessions.cpp" line="8"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>OptioCalcDirectory</name>
    <message>
        <location filename="../directories/enumerations.cpp" line="115"/>
        <source>Американский: Уплата премии</source>
        <translation>American: premium paid</translation>
    </message>
    <message>
        <location filename="../directories/enumerations.cpp" line="116"/>
        <source>Американский: Маржируемый</source>
        <translation>American: margined</translation>
    </message>
</context>
<context>
    <name>OptioTypeDirectory</name>
    <message>
        <location filename="../directories/enumerations.cpp" line="106"/>
        <source>Пут</source>
        <translation>Put</translation>
    </message>
    <message>
        <location filename="../directories/enumerations.cpp" line="107"/>
        <source>Колл</source>
        <translation>Call</translation>
    </message>
</context>
<context>
    <name>OptionSeriesParamDirectory</name>
    <message>
        <location filename="../directories/volatility.cpp" line="10"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>PriceDirectionDirectory</name>
    <message>
        <location filename="../directories/enumerations.cpp" line="99"/>
        <source>Прямое</source>
        <translation>Direct</translation>
    </message>
    <message>
        <location filename="../directories/enumerations.cpp" line="100"/>
        <source>Обратное</source>
        <translation>Reverse</translation>
    </message>
</context>
<context>
    <name>SecStateDirectory</name>
    <message>
        <location filename="../directories/frame.cpp" line="13"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>SecTypeDirectory</name>
    <message>
        <location filename="../directories/enumerations.cpp" line="87"/>
        <source>ID_%1</source>
        <translation>ID_%1</translation>
    </message>
    <message>
        <location filename="../directories/frame.cpp" line="12"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>SecurityDirectory</name>
    <message>
        <location filename="../directories/securities.cpp" line="266"/>
        <location filename="../directories/securities.cpp" line="316"/>
        <source>&lt;инструмент не найден&gt;</source>
        <translation>&lt;security not found&gt;</translation>
    </message>
    <message>
        <location filename="../directories/frame.cpp" line="15"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>SessStateDirectory</name>
    <message>
        <location filename="../directories/frame.cpp" line="14"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>SessionDirectory</name>
    <message>
        <location filename="../directories/sessions.cpp" line="43"/>
        <source>&lt;сессия не найдена&gt;</source>
        <translation>&lt;session not found&gt;</translation>
    </message>
    <message>
        <location filename="../directories/sessions.cpp" line="7"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>StatusDirectory</name>
    <message>
        <location filename="../directories/frame.cpp" line="11"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>StockDirectory</name>
    <message>
        <location filename="../directories/markets.cpp" line="84"/>
        <location filename="../directories/markets.cpp" line="89"/>
        <location filename="../directories/markets.cpp" line="104"/>
        <source>ID_%1</source>
        <translation>ID_%1</translation>
    </message>
    <message>
        <location filename="../directories/markets.cpp" line="91"/>
        <location filename="../directories/markets.cpp" line="97"/>
        <source>&lt;площадка не найдена&gt;</source>
        <translation>&lt;market not found&gt;</translation>
    </message>
    <message>
        <location filename="../directories/frame.cpp" line="17"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>StockSecDirectory</name>
    <message>
        <location filename="../directories/frame.cpp" line="18"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>StockTimeDirectory</name>
    <message>
        <location filename="../directories/sessions.cpp" line="9"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>VolatCoeffBachDirectory</name>
    <message>
        <location filename="../directories/volatility.cpp" line="9"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>VolatCoeffBlackDirectory</name>
    <message>
        <location filename="../directories/volatility.cpp" line="8"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
<context>
    <name>VolatDirectory</name>
    <message>
        <location filename="../directories/volatility.cpp" line="7"/>
        <source>Таблица &apos;%1&apos; отсутствует</source>
        <translation>Table &apos;%1&apos; is missing</translation>
    </message>
</context>
</TS>
