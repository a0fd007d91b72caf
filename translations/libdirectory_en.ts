<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
    <context>
        <name>AccountPanel</name>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="35" />
            <source>Счёт</source>
            <translation>Account</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="36" />
            <source>Инвестор</source>
            <translation>Investor</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="36" />
            <source>Фирма</source>
            <translation>Firm</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="36" />
            <source>Статус фирмы</source>
            <translation>Firm status</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="37" />
            <source>Расчётный счёт</source>
            <translation>Settlement account</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="37" />
            <source>Тип маржирования</source>
            <translation>Margin type</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="38" />
            <source>Вариационная маржа</source>
            <translation>Variation margin</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="38" />
            <source>Брокерская комиссия</source>
            <translation>Broker fee</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="105" />
            <source>%1, статус %2</source>
            <translation>%1, status %2</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="106" />
            <source>&lt;не найден&gt;</source>
            <translation>&lt;not found&gt;</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="120" />
            <source>%1 (тип %2), РФ %3</source>
            <translation>%1 (type %2), RF %3</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="130" />
            <source>%1; ЕДП: %2; расчётный счёт: %3 (%4)</source>
            <translation>%1; UCP: %2; settlement account: %3 (%4)</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="136" />
            <source>фьючерсы %1, опционы %2</source>
            <translation>futures %1, options %2</translation>
        </message>
        <message>
            <location filename="../apps/terminal/accounts.cpp" line="142" />
            <source>сессия %1: от %2 до %3, множитель %4, добавка %5</source>
            <translation>session %1: from %2 to %3, multiplier %4, additive %5</translation>
        </message>
    </context>
    <context>
        <name>BaseContractsParamsDirectory</name>
        <message>
            <location filename="../directories/fees.cpp" line="16" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>BoardDirectory</name>
        <message>
            <location filename="../directories/markets.cpp" line="280" />
            <source>&lt;режим не найден&gt;</source>
            <translation>&lt;board not found&gt;</translation>
        </message>
        <message>
            <location filename="../directories/frame.cpp" line="16" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>BrokerFeeDirectory</name>
        <message>
            <location filename="../directories/fees.cpp" line="14" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>BuySellDirectory</name>
        <message>
            <location filename="../directories/frame.cpp" line="10" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>CalendarDirectory</name>
        <message>
            <location filename="../directories/sessions.cpp" line="8" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>ConfirmationDialog</name>
        <message>
            <location filename="../ui/confirmationdialog.ui" line="14" />
            <source>Подтверждение</source>
            <translation>Confirmation</translation>
        </message>
        <message>
            <location filename="../ui/confirmationdialog.ui" line="45" />
            <source>Больше не показывать</source>
            <translation>Do not show again</translation>
        </message>
        <message>
            <location filename="../ui/confirmationdialog.ui" line="50" />
            <source>&lt;!DOCTYPE HTML PUBLIC "-//W3C//DTD HTML 4.0//EN" "http://www.w3.org/TR/REC-html40/strict.dtd"&gt;
&lt;html&gt;&lt;head&gt;&lt;meta name="qrichtext" content="1" /&gt;&lt;style type="text/css"&gt;
p, li { white-space: pre-wrap; }
&lt;/style&gt;&lt;/head&gt;&lt;body&gt;
&lt;p style=" margin-top:0px; margin-bottom:0px; margin-left:0px; margin-right:0px; -qt-block-indent:0; text-indent:0px;"&gt;&lt;span style=" font-weight:600;"&gt;Вы действительно хотите ЧТО-ТО СДЕЛАТЬ?&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</source>
            <translation>&lt;!DOCTYPE HTML PUBLIC "-//W3C//DTD HTML 4.0//EN" "http://www.w3.org/TR/REC-html40/strict.dtd"&gt;
&lt;html&gt;&lt;head&gt;&lt;meta name="qrichtext" content="1" /&gt;&lt;style type="text/css"&gt;
p, li { white-space: pre-wrap; }
&lt;/style&gt;&lt;/head&gt;&lt;body&gt;
&lt;p style=" margin-top:0px; margin-bottom:0px; margin-left:0px; margin-right:0px; -qt-block-indent:0; text-indent:0px;"&gt;&lt;span style=" font-weight:600;"&gt;Do you really want to DO SOMETHING?&lt;/span&gt;&lt;/p&gt;&lt;/body&gt;&lt;/html&gt;</translation>
        </message>
    </context>
    <context>
        <name>DealDetailsDialog</name>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="134" />
            <source>Квазисделка %1</source>
            <translation>Quasi-deal %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="136" />
            <source>Сделка: %1</source>
            <translation>Deal: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="136" />
            <source>Инструмент: %1</source>
            <translation>Security: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="137" />
            <source>Направление: %1</source>
            <translation>Side: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="137" />
            <source>покупка</source>
            <translation>buy</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="137" />
            <source>продажа</source>
            <translation>sell</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="138" />
            <source>Количество: %1</source>
            <translation>Quantity: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="138" />
            <source>Цена: %1</source>
            <translation>Price: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="138" />
            <source>Счёт: %1</source>
            <translation>Account: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="139" />
            <source>Рынок и режим: %1, %2</source>
            <translation>Market and board: %1, %2</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="145" />
            <source>В таблице сделок её нет</source>
            <translation>Not in the deals table</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="147" />
            <source>В таблице сделок: %1 %2 по цене %3, счёт %4, состояние %5</source>
            <translation>In the deals table: %1 %2 at %3, account %4, state %5</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="155" />
            <source>Этот терминал не подтверждает квазисделки: транзакции подтверждения в нём нет. Проверьте условия и подтвердите или отклоните сделку в системе внебиржевых сделок (ОТС), где она заключена.</source>
            <translation>This terminal does not confirm quasi-deals: it has no confirmation transaction. Check the terms, then confirm or reject the deal in the over-the-counter (OTC) system where it was made.</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="160" />
            <source>Закрыть</source>
            <translation>Close</translation>
        </message>
    </context>
    <context>
        <name>DealsDirectory</name>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Не подтверждена</source>
            <translation>Not confirmed</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Ошибка при добавлении заявки для активной стороны</source>
            <translation>Error adding the order of the active side</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Ошибка при добавлении заявки для пассивной стороны</source>
            <translation>Error adding the order of the passive side</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Заявка не найдена в системе TALMERA</source>
            <translation>Order not found in the TALMERA system</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Таймаут в системе TALMERA</source>
            <translation>Timeout in the TALMERA system</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Система TALMERA недоступна</source>
            <translation>The TALMERA system is unavailable</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Системная ошибка</source>
            <translation>System error</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Квазисделка %1 подтверждена</source>
            <translation>Quasi-deal %1 confirmed</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Квазисделка %1 отклонена. Ошибка ОТС: %2</source>
            <translation>Quasi-deal %1 rejected. OTC error: %2</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>покупку</source>
            <translation>buy</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>продажу</source>
            <translation>sell</translation>
        </message>
        <message>
            <location filename="../directories/deals.cpp" />
            <source>Квазисделка %1 на %2 %3 %4 по цене %5 требует подтверждения</source>
            <translation>Quasi-deal %1 to %2 %3 %4 at %5 needs confirmation</translation>
        </message>
    </context>
    <context>
        <name>Directory</name>
        <message>
            <location filename="../directories/frame.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>FeeDirectory</name>
        <message>
            <location filename="../directories/fees.cpp" line="13" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>FutRateDirectory</name>
        <message>
            <location filename="../directories/fees.cpp" line="11" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>FutVMDirectory</name>
        <message>
            <location filename="../directories/margin.cpp" line="15" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>FutVMSADirectory</name>
        <message>
            <location filename="../directories/margin.cpp" line="17" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>SessionTransport</name>
        <message>
            <location filename="../platform/gateway/src/sessiontransport.cpp" line="23" />
            <source>Связь с биржей прервалась до ответа на транзакцию (%1): что с ней стало, покажут заявки</source>
            <translation>The connection to the exchange closed before the transaction was answered (%1): the orders will show what became of it</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/sessiontransport.cpp" line="49" />
            <source>параметр «%1» не передаётся текстом</source>
            <translation>parameter '%1' cannot be sent as text</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/sessiontransport.cpp" line="58" />
            <source>Транзакция не отправлена: нет связи с биржей (%1)</source>
            <translation>The transaction was not sent: no connection to the exchange (%1)</translation>
        </message>
    </context>
    <context>
        <name>Gateway</name>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="47" />
            <source>нет параметра «%1»</source>
            <translation>parameter '%1' is missing</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="54" />
            <source>направление должно быть B или S, а не «%1»</source>
            <translation>the side must be B or S, not '%1'</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="61" />
            <source>нет таблицы «%1»</source>
            <translation>table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="119" />
            <source>инструмент «%1» не найден</source>
            <translation>security '%1' not found</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="126" />
            <source>счёт «%1» не найден</source>
            <translation>account '%1' not found</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="146" />
            <source>цена «%1» не является числом</source>
            <translation>price '%1' is not a number</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="178" />
            <source>количество должно быть целым положительным числом, а не «%1»</source>
            <translation>the quantity must be a positive whole number, not '%1'</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="193" />
            <source>нет текущей сессии рынка %1</source>
            <translation>market %1 has no current session</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="278" />
            <source>в таблице «%1» нет столбца «%2»</source>
            <translation>table '%1' has no column '%2'</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="357" />
            <source>транзакция %1 не обслуживается</source>
            <translation>message code %1 is not served</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="366" />
            <source>изменения не приняты базой: %1</source>
            <translation>the database refused the change: %1</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="379" />
            <source>тип заявки «%1» не поддерживается</source>
            <translation>order type '%1' is not supported</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="404" />
            <source>цена %1 должна быть больше нуля</source>
            <translation>price %1 must be above zero</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="389" />
            <source>цена %1 не кратна шагу цены %2</source>
            <translation>price %1 is not a multiple of the price step %2</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="411" />
            <source>цена %1 вне лимитов цены %2 – %3</source>
            <translation>price %1 is outside the price limits %2 to %3</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="410" />
            <source>нет потока по инструменту «%1»</source>
            <translation>no stream for security '%1'</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="447" />
            <source>Заявка %1 принята</source>
            <translation>Order %1 accepted</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="460" />
            <source>заявка %1 не найдена</source>
            <translation>order %1 not found</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="474" />
            <source>заявка %1 не совпадает с транзакцией по полю «%2»</source>
            <translation>order %1 does not match the transaction in '%2'</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="487" />
            <source>заявку %1 снимают транзакцией %2</source>
            <translation>order %1 is cancelled with message code %2</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="488" />
            <source>заявка %1 не активна</source>
            <translation>order %1 is not active</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="503" />
            <source>Заявка %1 снята</source>
            <translation>Order %1 cancelled</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="543" />
            <source>Снято заявок: %1</source>
            <translation>Orders cancelled: %1</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="563" />
            <source>Транзакция отвергнута: %1</source>
            <translation>Transaction rejected: %1</translation>
        </message>
    </context>
    <context>
        <name>K3BrokerFeeParamDirectory</name>
        <message>
            <location filename="../directories/fees.cpp" line="15" />
            <source>Таблица k3.broker_fee_params отсутствует</source>
            <translation>Table k3.broker_fee_params is missing</translation>
        </message>
    </context>
    <context>
        <name>K3CoreDealerDirectory</name>
        <message>
            <location filename="../directories/participants.cpp" line="12" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>K3CoreInvestorDirectory</name>
        <message>
            <location filename="../directories/participants.cpp" line="13" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>K3DealerDirectory</name>
        <message>
            <location filename="../directories/participants.cpp" line="10" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="66" />
            <source>Режим блокировки ТС</source>
            <translation>Trading system blocking mode</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="67" />
            <source>Режим блокировки ГТ</source>
            <translation>Guarantee blocking mode</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="69" />
            <source>Доверительное управление</source>
            <translation>Trust management</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="70" />
            <source>Собственный раздел</source>
            <translation>Own section</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="71" />
            <source>Клиентский раздел</source>
            <translation>Client section</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="72" />
            <source>Обособленный учет</source>
            <translation>Segregated accounting</translation>
        </message>
    </context>
    <context>
        <name>K3FutMarginTypeDirectory</name>
        <message>
            <location filename="../directories/settlement.cpp" line="13" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="130" />
            <source>Нетто БФ</source>
            <translation>Net by firm</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="131" />
            <source>Полунетто БФ</source>
            <translation>Semi-net by firm</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="132" />
            <source>Полунеттинг БФ</source>
            <translation>Semi-netting by firm</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="133" />
            <source>Полунеттинг РК</source>
            <translation>Semi-netting by settlement account</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="134" />
            <source>Неттинг БФ</source>
            <translation>Netting by firm</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="135" />
            <source>Субброкеры</source>
            <translation>Sub-brokers</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="136" />
            <source>Неттинг РК</source>
            <translation>Netting by settlement account</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="147" />
            <source>Срочный рынок</source>
            <translation>Derivatives market</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="148" />
            <source>Единый пул</source>
            <translation>Unified pool</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="159" />
            <source>Собственный РК</source>
            <translation>Own settlement account</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="160" />
            <source>Клиентский РК</source>
            <translation>Client settlement account</translation>
        </message>
        <message>
            <location filename="../directories/settlement.cpp" line="161" />
            <source>Доверительное Управление</source>
            <translation>Trust Management</translation>
        </message>
    </context>
    <context>
        <name>K3FutSettlementDirectory</name>
        <message>
            <location filename="../directories/settlement.cpp" line="12" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>K3InvestorDirectory</name>
        <message>
            <location filename="../directories/participants.cpp" line="11" />
            <source>Таблица k3.investor отсутствует</source>
            <translation>Table k3.investor is missing</translation>
        </message>
    </context>
    <context>
        <name>K3PartsBFDirectory</name>
        <message>
            <location filename="../directories/settlement.cpp" line="14" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>K3RFDirectory</name>
        <message>
            <location filename="../directories/participants.cpp" line="14" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="206" />
            <source>Режим блокировки ТС по РФ</source>
            <translation>Trading system blocking mode by RF</translation>
        </message>
        <message>
            <location filename="../directories/participants.cpp" line="207" />
            <source>Режим блокировки ГТ по РФ</source>
            <translation>Guarantee blocking mode by RF</translation>
        </message>
    </context>
    <context>
        <name>K3UserDirectory</name>
        <message>
            <location filename="../directories/users.cpp" line="14" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../directories/users.cpp" line="158" />
            <source>&lt;p&gt;По данным на конец вчерашнего дня у логина &lt;span style="color: blue;"&gt;&lt;b&gt;%1&lt;/b&gt;&lt;/span&gt; вашего участника торгов/клиринга приближается дата истечения пароля&lt;/p&gt;</source>
            <translation>&lt;p&gt;As of the end of yesterday, the password of login &lt;span style="color: blue;"&gt;&lt;b&gt;%1&lt;/b&gt;&lt;/span&gt; of your trading/clearing member is about to expire&lt;/p&gt;</translation>
        </message>
        <message>
            <location filename="../directories/users.cpp" line="160" />
            <source>&lt;p&gt;По данным на конец вчерашнего дня у логина &lt;b&gt;%1&lt;/b&gt; вашего участника торгов/клиринга приближается дата истечения пароля&lt;/p&gt;</source>
            <translation>&lt;p&gt;As of the end of yesterday, the password of login &lt;b&gt;%1&lt;/b&gt; of your trading/clearing member is about to expire&lt;/p&gt;</translation>
        </message>
    </context>
    <context>
        <name>LPUsersDirectory</name>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>MarketView</name>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="104" />
            <source>Рынки и режимы</source>
            <translation>Markets and boards</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="105" />
            <source>Код или наименование</source>
            <translation>Code or name</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="153" />
            <source>Все инструменты</source>
            <translation>All securities</translation>
        </message>
    </context>
    <context>
        <name>NotificationsPanel</name>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="103" />
            <source>Заявка на поток</source>
            <translation>Order on stream</translation>
        </message>
        <message>
            <location filename="../apps/terminal/notifications.cpp" line="103" />
            <source>Проверить сделку</source>
            <translation>Check the deal</translation>
        </message>
    </context>
    <context>
        <name>OptRateDirectory</name>
        <message>
            <location filename="../directories/fees.cpp" line="12" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>OptVMDirectory</name>
        <message>
            <location filename="../directories/margin.cpp" line="16" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>OptVMSADirectory</name>
        <message>
            <location filename="../directories/margin.cpp" line="18" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>OptioCalcDirectory</name>
        <message>
            <location filename="../directories/enumerations.cpp" line="115" />
            <source>Американский: Уплата премии</source>
            <translation>American: premium paid</translation>
        </message>
        <message>
            <location filename="../directories/enumerations.cpp" line="116" />
            <source>Американский: Маржируемый</source>
            <translation>American: margined</translation>
        </message>
    </context>
    <context>
        <name>OptioTypeDirectory</name>
        <message>
            <location filename="../directories/enumerations.cpp" line="106" />
            <source>Пут</source>
            <translation>Put</translation>
        </message>
        <message>
            <location filename="../directories/enumerations.cpp" line="107" />
            <source>Колл</source>
            <translation>Call</translation>
        </message>
    </context>
    <context>
        <name>OptionBoardModel</name>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="159" />
            <source>Центральный страйк</source>
            <translation>At-the-money strike</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="160" />
            <source>Колл</source>
            <translation>Call</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="160" />
            <source>Пут</source>
            <translation>Put</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="169" />
            <source>Страйк</source>
            <translation>Strike</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="171" />
            <source>Волат.</source>
            <translation>Vol.</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="171" />
            <source>Теор.</source>
            <translation>Theor.</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="171" />
            <source>Дельта</source>
            <translation>Delta</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="171" />
            <source>Гамма</source>
            <translation>Gamma</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="171" />
            <source>Вега</source>
            <translation>Vega</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="171" />
            <source>Тета</source>
            <translation>Theta</translation>
        </message>
    </context>
    <context>
        <name>OptionBoardView</name>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="183" />
            <location filename="../apps/terminal/optionboard.cpp" line="378" />
            <source>Блэк</source>
            <translation>Black</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="184" />
            <location filename="../apps/terminal/optionboard.cpp" line="378" />
            <source>Башелье</source>
            <translation>Bachelier</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="194" />
            <source>Волатильность</source>
            <translation>Volatility</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="195" />
            <source>Центральный страйк</source>
            <translation>At-the-money strike</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="199" />
            <source>Страйк</source>
            <translation>Strike</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="200" />
            <source>Волатильность, %</source>
            <translation>Volatility, %</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="213" />
            <source>Базовый актив</source>
            <translation>Underlying</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="215" />
            <source>Исполнение</source>
            <translation>Expiry</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="217" />
            <source>Модель</source>
            <translation>Model</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="227" />
            <source>Коллы</source>
            <translation>Calls</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="228" />
            <source>Путы</source>
            <translation>Puts</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="380" />
            <source>Улыбка %1 (%2)</source>
            <translation>Smile of %1 (%2)</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="382" />
            <source>Нет опционов для выбранной серии</source>
            <translation>No options in the chosen series</translation>
        </message>
        <message>
            <location filename="../apps/terminal/optionboard.cpp" line="383" />
            <source>Серия %1, базовый актив по %2</source>
            <translation>Series %1, underlying at %2</translation>
        </message>
    </context>
    <context>
        <name>OptionSeriesParamDirectory</name>
        <message>
            <location filename="../directories/volatility.cpp" line="10" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>OrderTicket</name>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="29" />
            <source>Покупка</source>
            <translation>Buy</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="30" />
            <source>Продажа</source>
            <translation>Sell</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="31" />
            <source>Отправить</source>
            <translation>Send</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="40" />
            <location filename="../apps/terminal/orderentry.cpp" line="49" />
            <source>Цена</source>
            <translation>Price</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="46" />
            <source>Инструмент</source>
            <translation>Security</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="47" />
            <source>Поток</source>
            <translation>Stream</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="48" />
            <source>Направление</source>
            <translation>Side</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="50" />
            <source>Количество</source>
            <translation>Quantity</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="51" />
            <source>Счёт</source>
            <translation>Account</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="67" />
            <source>нет</source>
            <translation>none</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="70" />
            <source>&lt;инструмент не выбран&gt;</source>
            <translation>&lt;no security chosen&gt;</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="120" />
            <source>Инструмент не выбран или не найден</source>
            <translation>No security chosen, or it is not found</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="125" />
            <source>Цена должна быть числом, например 101.25</source>
            <translation>The price must be a number, such as 101.25</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="133" />
            <source>У цены не больше %1 знаков после запятой</source>
            <translation>The price has at most %1 decimal places</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="139" />
            <source>Цена должна быть больше нуля</source>
            <translation>The price must be above zero</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="146" />
            <source>Цена не кратна шагу цены %1</source>
            <translation>The price is not a multiple of the price step %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="153" />
            <source>Цена вне лимитов %1 .. %2</source>
            <translation>The price is outside the limits %1 .. %2</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orderentry.cpp" line="157" />
            <source>Счёт не выбран</source>
            <translation>No account chosen</translation>
        </message>
    </context>
    <context>
        <name>OrdersModel</name>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="25" />
            <source>Номер</source>
            <translation>Number</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="26" />
            <source>Инструмент</source>
            <translation>Security</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="27" />
            <source>Направление</source>
            <translation>Side</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="28" />
            <source>Цена</source>
            <translation>Price</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="29" />
            <source>Количество</source>
            <translation>Quantity</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="30" />
            <source>Остаток</source>
            <translation>Balance</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="31" />
            <source>Статус</source>
            <translation>Status</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="32" />
            <source>Счёт</source>
            <translation>Account</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="33" />
            <source>Поток</source>
            <translation>Stream</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="34" />
            <source>Время</source>
            <translation>Time</translation>
        </message>
    </context>
    <context>
        <name>OrdersView</name>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="68" />
            <source>Снять заявку</source>
            <translation>Cancel order</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="69" />
            <source>Снять выбранные</source>
            <translation>Cancel selected</translation>
        </message>
        <message>
            <location filename="../apps/terminal/orders.cpp" line="69" />
            <source>Снять все по инструменту</source>
            <translation>Cancel all in security</translation>
        </message>
    </context>
    <context>
        <name>PriceDirectionDirectory</name>
        <message>
            <location filename="../directories/enumerations.cpp" line="99" />
            <source>Прямое</source>
            <translation>Direct</translation>
        </message>
        <message>
            <location filename="../directories/enumerations.cpp" line="100" />
            <source>Обратное</source>
            <translation>Reverse</translation>
        </message>
    </context>
    <context>
        <name>QueriesFast</name>
        <message>
            <location filename="../queries/queriesfast.cpp" line="59" />
            <source>Отправка заявки</source>
            <translation>Placing an order</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="49" />
            <source>покупку</source>
            <translation>buy</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="50" />
            <source>продажу</source>
            <translation>sell</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="57" />
            <source>Вы действительно хотите поставить заявку на %1 со своп-ценой %2 в количестве %3 со счёта %4?</source>
            <translation>Do you really want to place an order to %1 at the swap price %2, quantity %3, from account %4?</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="58" />
            <source>Вы действительно хотите поставить заявку на %1 по цене %2 в количестве %3 со счёта %4?</source>
            <translation>Do you really want to place an order to %1 at the price %2, quantity %3, from account %4?</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="74" />
            <source>Отмена заявки</source>
            <translation>Cancelling an order</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="94" />
            <source>Отмена заявок</source>
            <translation>Cancelling orders</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="75" />
            <source>Вы действительно хотите отменить заявку?
</source>
            <translation>Do you really want to cancel the order?
</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="95" />
            <source>Вы действительно хотите отменить заявки(%1)?
</source>
            <translation>Do you really want to cancel the orders (%1)?
</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="31" />
            <source>%1 по цене %2 в количестве %3 %4 со счёта %5</source>
            <translation>%1 at the price %2, quantity %3, %4, from account %5</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="78" />
            <source>Ошибка при отправке транзакции: нет соответствующего транспорта.</source>
            <translation>Error sending the transaction: no suitable transport.</translation>
        </message>
        <message>
            <location filename="../queries/queriesfast.cpp" line="27" />
            <source>Ошибка при отправке транзакции: служба транзакций недоступна.</source>
            <translation>Error sending the transaction: the transaction service is unavailable.</translation>
        </message>
    </context>
    <context>
        <name>QueriesGen</name>
        <message>
            <location filename="../queries/queriesgen.cpp" line="25" />
            <source>Служба транзакций ядра недоступна</source>
            <translation>The core's transaction service is unavailable</translation>
        </message>
        <message>
            <location filename="../queries/queriesgen.cpp" line="29" />
            <source>Подходящая транзакция не найдена</source>
            <translation>No suitable transaction found</translation>
        </message>
        <message>
            <location filename="../queries/queriesgen.cpp" />
            <source>Транзакция %1 собрана без параметра %2</source>
            <translation>Transaction %1 was built without parameter %2</translation>
        </message>
        <message>
            <location filename="../queries/queriesgen.cpp" />
            <source>Цена %1 содержит больше знаков после запятой, чем допускает инструмент (%2)</source>
            <translation>Price %1 has more decimal places than the instrument allows (%2)</translation>
        </message>
    </context>
    <context>
        <name>RFSMinAmountDirectory</name>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>RFSOrdersDirectory</name>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>RFSQuoteDirectory</name>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>RFSStreamsDirectory</name>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Открыт поток ликвидности %1</source>
            <translation>Liquidity stream %1 opened</translation>
        </message>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Закрыт поток ликвидности %1</source>
            <translation>Liquidity stream %1 closed</translation>
        </message>
    </context>
    <context>
        <name>ReplayPanel</name>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="16" />
            <source>Максимальная скорость</source>
            <translation>Full speed</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="16" />
            <location filename="../apps/terminal/replay.cpp" line="56" />
            <source>%1 мс между пакетами</source>
            <translation>%1 ms between batches</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="22" />
            <source>Журнал репликации</source>
            <translation>Replication log</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="32" />
            <source>пакетов: %1</source>
            <translation>batches: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="37" />
            <source>воспроизведено пакетов: %1</source>
            <translation>batches replayed: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="42" />
            <source>остановлено: ошибка в журнале</source>
            <translation>stopped: an error in the log</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="94" />
            <source>Старт</source>
            <translation>Start</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="94" />
            <source>Продолжить</source>
            <translation>Resume</translation>
        </message>
        <message>
            <location filename="../apps/terminal/replay.cpp" line="94" />
            <source>Пауза</source>
            <translation>Pause</translation>
        </message>
    </context>
    <context>
        <name>SecStateDirectory</name>
        <message>
            <location filename="../directories/frame.cpp" line="13" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>SecTypeDirectory</name>
        <message>
            <location filename="../directories/enumerations.cpp" line="87" />
            <source>ID_%1</source>
            <translation>ID_%1</translation>
        </message>
        <message>
            <location filename="../directories/frame.cpp" line="12" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>SecuritiesModel</name>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="28" />
            <source>Код</source>
            <translation>Code</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="29" />
            <source>Наименование</source>
            <translation>Name</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="30" />
            <source>Режим</source>
            <translation>Board</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="31" />
            <source>Тип</source>
            <translation>Type</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="32" />
            <source>Спрос</source>
            <translation>Bid</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="33" />
            <source>Предложение</source>
            <translation>Ask</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="34" />
            <source>Рыночная цена</source>
            <translation>Market price</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="35" />
            <source>Лот</source>
            <translation>Lot</translation>
        </message>
        <message>
            <location filename="../apps/terminal/marketview.cpp" line="36" />
            <source>Исполнение</source>
            <translation>Expiry</translation>
        </message>
    </context>
    <context>
        <name>SecurityDirectory</name>
        <message>
            <location filename="../directories/securities.cpp" line="266" />
            <location filename="../directories/securities.cpp" line="316" />
            <source>&lt;инструмент не найден&gt;</source>
            <translation>&lt;security not found&gt;</translation>
        </message>
        <message>
            <location filename="../directories/frame.cpp" line="15" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>SessStateDirectory</name>
        <message>
            <location filename="../directories/frame.cpp" line="14" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>SessionDirectory</name>
        <message>
            <location filename="../directories/sessions.cpp" line="43" />
            <source>&lt;сессия не найдена&gt;</source>
            <translation>&lt;session not found&gt;</translation>
        </message>
        <message>
            <location filename="../directories/sessions.cpp" line="7" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>StatusDirectory</name>
        <message>
            <location filename="../directories/frame.cpp" line="11" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>StockDirectory</name>
        <message>
            <location filename="../directories/markets.cpp" line="84" />
            <location filename="../directories/markets.cpp" line="89" />
            <location filename="../directories/markets.cpp" line="104" />
            <source>ID_%1</source>
            <translation>ID_%1</translation>
        </message>
        <message>
            <location filename="../directories/markets.cpp" line="91" />
            <location filename="../directories/markets.cpp" line="97" />
            <source>&lt;площадка не найдена&gt;</source>
            <translation>&lt;market not found&gt;</translation>
        </message>
        <message>
            <location filename="../directories/frame.cpp" line="17" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>StockSecDirectory</name>
        <message>
            <location filename="../directories/frame.cpp" line="18" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>StockTimeDirectory</name>
        <message>
            <location filename="../directories/sessions.cpp" line="9" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>TerminalWindow</name>
        <message>
            <location filename="../apps/terminal/window.cpp" line="29" />
            <source>Терминал срочного рынка</source>
            <translation>Derivatives market terminal</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="49" />
            <source>Рынок</source>
            <translation>Market</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="50" />
            <source>Опционная доска</source>
            <translation>Option board</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="51" />
            <source>Заявки</source>
            <translation>Orders</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="63" />
            <source>Заявка</source>
            <translation>Order</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="64" />
            <source>Счёт</source>
            <translation>Account</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="65" />
            <source>Уведомления</source>
            <translation>Notifications</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="71" />
            <source>Воспроизведение</source>
            <translation>Replay</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="75" />
            <location filename="../apps/terminal/window.cpp" line="131" />
            <source>Загрузка рынка…</source>
            <translation>Loading the market…</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="83" />
            <source>Ссылка не поддерживается: %1</source>
            <translation>Link not supported: %1</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="99" />
            <location filename="../apps/terminal/window.cpp" line="128" />
            <source>Ошибка загрузки рынка</source>
            <translation>Market loading error</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="100" />
            <source>Рынок загружен не полностью</source>
            <translation>The market is loaded only in part</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="103" />
            <location filename="../apps/terminal/window.cpp" line="105" />
            <source>Ошибка обработки пакета</source>
            <translation>Batch processing error</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="107" />
            <source>Ошибка журнала репликации</source>
            <translation>Replication log error</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="110" />
            <source>Рынок загружен: %1 пакетов из %2</source>
            <translation>Market loaded: %1 batches from %2</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="1" />
            <source>Биржа %1: %2 · последовательность %3 · отставание %4</source>
            <translation>Exchange %1: %2 · sequence %3 · lag %4</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="1" />
            <source>Биржа %1 БЕЗ ШИФРОВАНИЯ: %2 · последовательность %3 · отставание %4</source>
            <translation>Exchange %1 NOT ENCRYPTED: %2 · sequence %3 · lag %4</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="1" />
            <source>Репликация остановлена</source>
            <translation>Replication stopped</translation>
        </message>
        <message>
            <location filename="../apps/terminal/window.cpp" line="1" />
            <source>Рынок загружен с биржи %1</source>
            <translation>Market loaded from the exchange %1</translation>
        </message>
    </context>
    <context>
        <name>TradingPath</name>
        <message>
            <location filename="../apps/terminal/trading.cpp" line="43" />
            <source>Заявка не отправлена</source>
            <translation>The order was not sent</translation>
        </message>
        <message>
            <location filename="../apps/terminal/trading.cpp" line="51" />
            <source>Заявка отправлена, ждём ответа биржи</source>
            <translation>Order sent; waiting for the exchange to answer</translation>
        </message>
        <message>
            <location filename="../apps/terminal/trading.cpp" line="88" />
            <source>Активных заявок по инструменту нет</source>
            <translation>No active orders in this security</translation>
        </message>
        <message>
            <location filename="../apps/terminal/trading.cpp" line="102" />
            <source>Отмена заявок</source>
            <translation>Cancelling orders</translation>
        </message>
        <message>
            <location filename="../apps/terminal/trading.cpp" line="104" />
            <source>Вы действительно хотите отменить все заявки по инструменту %1?
%2</source>
            <translation>Do you really want to cancel every order in %1?
%2</translation>
        </message>
        <message>
            <location filename="../apps/terminal/trading.cpp" line="114" />
            <source>Ошибка при отправке транзакции: нет соответствующего транспорта.</source>
            <translation>Error sending the transaction: no suitable transport.</translation>
        </message>
    </context>
    <context>
        <name>VolatCoeffBachDirectory</name>
        <message>
            <location filename="../directories/volatility.cpp" line="9" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>VolatCoeffBlackDirectory</name>
        <message>
            <location filename="../directories/volatility.cpp" line="8" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
    <context>
        <name>VolatDirectory</name>
        <message>
            <location filename="../directories/volatility.cpp" line="7" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
        </message>
    </context>
</TS>
