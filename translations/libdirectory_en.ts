<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en_US">
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
        <name>Gateway</name>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="47" />
            <source>нет параметра «%1»</source>
            <translation>parameter &apos;%1&apos; is missing</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="54" />
            <source>направление должно быть B или S, а не «%1»</source>
            <translation>the side must be B or S, not &apos;%1&apos;</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="61" />
            <source>нет таблицы «%1»</source>
            <translation>table &apos;%1&apos; is missing</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="119" />
            <source>инструмент «%1» не найден</source>
            <translation>security &apos;%1&apos; not found</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="126" />
            <source>счёт «%1» не найден</source>
            <translation>account &apos;%1&apos; not found</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="146" />
            <source>цена «%1» не является числом</source>
            <translation>price &apos;%1&apos; is not a number</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="178" />
            <source>количество должно быть целым положительным числом, а не «%1»</source>
            <translation>the quantity must be a positive whole number, not &apos;%1&apos;</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="193" />
            <source>нет текущей сессии рынка %1</source>
            <translation>market %1 has no current session</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="278" />
            <source>в таблице «%1» нет столбца «%2»</source>
            <translation>table &apos;%1&apos; has no column &apos;%2&apos;</translation>
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
            <translation>order type &apos;%1&apos; is not supported</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="389" />
            <source>цена %1 не кратна шагу цены %2</source>
            <translation>price %1 is not a multiple of the price step %2</translation>
        </message>
        <message>
            <location filename="../platform/gateway/src/simulatedgateway.cpp" line="410" />
            <source>нет потока по инструменту «%1»</source>
            <translation>no stream for security &apos;%1&apos;</translation>
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
            <translation>order %1 does not match the transaction in &apos;%2&apos;</translation>
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
        <name>OptionSeriesParamDirectory</name>
        <message>
            <location filename="../directories/volatility.cpp" line="10" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
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
    </context>
    <context>
        <name>QueriesGen</name>
        <message>
            <location filename="../queries/queriesgen.cpp" line="29" />
            <source>Подходящая транзакция не найдена</source>
            <translation>No suitable transaction found</translation>
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
        <name>LPUsersDirectory</name>
        <message>
            <location filename="../directories/streams.cpp" />
            <source>Таблица '%1' отсутствует</source>
            <translation>Table '%1' is missing</translation>
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
</TS>
