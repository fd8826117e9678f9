#pragma once

// CUPS queue names, descriptions and device URIs of network printers.
//
//     QVariantMap printer{{talvo::kPrinterModelStrKey, u"Model 4000"_s},
//                         {talvo::kIPAddrStrKey, u"10.0.0.5"_s}};
//     talvo::uriDescAndQueueNameForSocketPrinter(printer);
//     // queueName "_10_0_0_5", URI "lpd://10.0.0.5", cupsDesc "Model 4000 \"10.0.0.5\""

#include <QString>
#include <QVariantMap>

namespace talvo {

// Every character that is not an ASCII letter, digit or '_' becomes '_';
// nothing is removed, shortened or folded in case.
QString convertStrForCupsQueueName(const QString& text);

// Sets "queueName", "URI" and "cupsDesc" of a network printer from its
// "printerModel", "ipAddr" and optional "dnsName". The queue is named after
// the DNS name when there is one, else "_" and the address (a queue name may
// not begin with a digit). The URI is always "lpd://" and the numeric address:
// the printer is reached at its address whatever name it was found under.
void uriDescAndQueueNameForSocketPrinter(QVariantMap& printer);

} // namespace talvo
