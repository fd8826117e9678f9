// A Bonjour TXT record is written by whatever answers on the local link: a
// length byte and that many bytes, for each "key=value" string, with no other
// framing, as DNS-SD hands it over. Reading one must never crash or read past
// the record, every value found must be one of its strings, and the model and
// manufacturer drawn from it must keep to what the record said.
#include "discovery/BonjourBrowser.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace {

// Whether one of the record's strings is "key=value", the key compared
// without case. A last string cut short by the record's end counts as far as
// it goes.
bool hasEntry(const QByteArray& txt, const QByteArray& key, const QByteArray& value)
{
    for (qsizetype i = 0; i < txt.size();) {
        const auto length = static_cast<unsigned char>(txt[i]);
        const QByteArray entry = txt.mid(i + 1, length);
        i += 1 + length;
        if (entry.size() == key.size() + 1 + value.size() && entry[key.size()] == '=' &&
            QByteArrayView(entry).first(key.size()).compare(key, Qt::CaseInsensitive) == 0 &&
            entry.endsWith(value))
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    talvo::setVendor(QStringLiteral("talvo"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using talvo::BonjourBrowser;
    // DNS-SD hands over at most a 16-bit length.
    if (size > std::numeric_limits<uint16_t>::max())
        return 0;
    const QByteArray txt(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));

    // The keys the browser reads, others printers send, and whatever key the
    // record starts with (up to a NUL, as a C string ends).
    QByteArrayList keys{"product", "usb_MFG", "usb_MDL", "ty", "note", "txtvers", "pdl"};
    if (!txt.isEmpty()) {
        const QByteArray first = txt.mid(1, static_cast<unsigned char>(txt[0]));
        keys << QByteArray(first.left(first.indexOf('=')).constData());
    }
    for (const QByteArray& key : keys) {
        const auto value = BonjourBrowser::txtValue(txt, key.constData());
        if (value && !hasEntry(txt, key, *value))
            std::abort();
    }

    const QString vendor = talvo::vendorWithCaps();
    if (const auto product = BonjourBrowser::txtValue(txt, "product")) {
        // The model is what the parentheses held, perhaps less the vendor.
        const QString inner =
            product->size() < 2 ? QString() : QString::fromLatin1(product->sliced(1, product->size() - 2));
        for (const QString& v : {vendor, QString()}) {
            const auto model = BonjourBrowser::modelFromProduct(*product, v);
            if (model && (model->size() < 2 || !inner.endsWith(*model)))
                std::abort();
        }
    }
    if (const auto mfg = BonjourBrowser::txtValue(txt, "usb_MFG")) {
        if (BonjourBrowser::manufacturerMatches(*mfg, vendor) &&
            !vendor.startsWith(QString::fromLatin1(*mfg), Qt::CaseInsensitive))
            std::abort();
    }

    // The whole evaluation: at most one outcome, and a printer to identify
    // only for a model in the list.
    static BonjourBrowser browser;
    static const QStringList models{QStringLiteral("Model 8560"), QStringLiteral("Model 4000")};
    browser.setPrinterModels(models);
    browser.setLearnNetworks(true);
    talvo::MethodOutput out;
    browser.evaluate(QStringLiteral("printer.local"), 0x0a00000a, txt, out);
    if (out.identify.size() + out.learnFrom.size() > 1 ||
        (!out.identify.empty() &&
         !models.contains(out.identify.front().printer.value(talvo::kPrinterModelStrKey).toString())))
        std::abort();
    return 0;
}
