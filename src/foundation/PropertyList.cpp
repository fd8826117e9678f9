#include "foundation/PropertyList.h"

#include "foundation/Log.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTimeZone>

#include <plist/plist.h>

#include <cstdlib>
#include <limits>
#include <memory>

namespace talvo::plist {
namespace {

struct PlistDeleter
{
    void operator()(void* node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

// libplist hands out malloc'd strings; they are freed with free().
struct FreeDeleter
{
    void operator()(char* p) const { std::free(p); }
};
using CString = std::unique_ptr<char, FreeDeleter>;

// Property-list dates count seconds from 2001-01-01 00:00:00 UTC.
const QDateTime& referenceDate()
{
    static const QDateTime epoch(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
    return epoch;
}

std::optional<QVariant> toVariant(plist_t node, int depth)
{
    if (depth > kMaxDepth)
        return std::nullopt;
    switch (plist_get_node_type(node)) {
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char* rawKey = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, it, &rawKey, &item);
            CString key(rawKey);
            if (!item)
                break;
            auto value = toVariant(item, depth + 1);
            if (!value) {
                std::free(it);
                return std::nullopt;
            }
            map.insert(QString::fromUtf8(key.get()), *value);
        }
        std::free(it);
        return QVariant(map);
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t size = plist_array_get_size(node);
        list.reserve(static_cast<qsizetype>(size));
        for (uint32_t i = 0; i < size; ++i) {
            auto value = toVariant(plist_array_get_item(node, i), depth + 1);
            if (!value)
                return std::nullopt;
            list.append(*value);
        }
        return QVariant(list);
    }
    case PLIST_STRING: {
        // By pointer and length: a string holding a NUL byte (which a damaged
        // file can) trips an assertion inside libplist's copying getter.
        uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        if (!text || length > static_cast<uint64_t>(std::numeric_limits<qsizetype>::max()))
            return QVariant(QString());
        return QVariant(QString::fromUtf8(text, static_cast<qsizetype>(length)));
    }
    case PLIST_BOOLEAN: {
        uint8_t b = 0;
        plist_get_bool_val(node, &b);
        return QVariant(b != 0);
    }
    case PLIST_UINT: {
        uint64_t v = 0;
        plist_get_uint_val(node, &v);
        if (v <= static_cast<uint64_t>(std::numeric_limits<qlonglong>::max()))
            return QVariant(static_cast<qlonglong>(v));
        return QVariant(static_cast<qulonglong>(v));
    }
    case PLIST_UID: {
        uint64_t v = 0;
        plist_get_uid_val(node, &v);
        return QVariant(static_cast<qulonglong>(v));
    }
    case PLIST_REAL: {
        double d = 0;
        plist_get_real_val(node, &d);
        return QVariant(d);
    }
    case PLIST_DATA: {
        uint64_t length = 0;
        const char* data = plist_get_data_ptr(node, &length);
        if (length > static_cast<uint64_t>(std::numeric_limits<qsizetype>::max()))
            return std::nullopt;
        return QVariant(QByteArray(data, static_cast<qsizetype>(length)));
    }
    case PLIST_DATE: {
        int32_t sec = 0;
        int32_t usec = 0;
        plist_get_date_val(node, &sec, &usec);
        return QVariant(referenceDate().addMSecs(qint64{sec} * 1000 + usec / 1000));
    }
    case PLIST_KEY:
    case PLIST_NONE:
        break;
    }
    return std::nullopt;
}

PlistPtr fromVariant(const QVariant& value, int depth)
{
    if (depth > kMaxDepth)
        return nullptr;
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        PlistPtr dict(plist_new_dict());
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            PlistPtr item = fromVariant(it.value(), depth + 1);
            if (!item)
                return nullptr;
            plist_dict_set_item(dict.get(), it.key().toUtf8().constData(), item.release());
        }
        return dict;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        PlistPtr array(plist_new_array());
        const QVariantList list = value.toList();
        for (const QVariant& element : list) {
            PlistPtr item = fromVariant(element, depth + 1);
            if (!item)
                return nullptr;
            plist_array_append_item(array.get(), item.release());
        }
        return array;
    }
    case QMetaType::QString:
        return PlistPtr(plist_new_string(value.toString().toUtf8().constData()));
    case QMetaType::Bool:
        return PlistPtr(plist_new_bool(value.toBool() ? 1 : 0));
    case QMetaType::Int:
    case QMetaType::LongLong:
        // Integers are stored unsigned; a negative value keeps its bits and
        // reads back as the same signed number.
        return PlistPtr(plist_new_uint(static_cast<uint64_t>(value.toLongLong())));
    case QMetaType::UInt:
    case QMetaType::ULongLong:
        return PlistPtr(plist_new_uint(value.toULongLong()));
    case QMetaType::Double:
    case QMetaType::Float:
        return PlistPtr(plist_new_real(value.toDouble()));
    case QMetaType::QByteArray: {
        const QByteArray bytes = value.toByteArray();
        return PlistPtr(plist_new_data(bytes.constData(), static_cast<uint64_t>(bytes.size())));
    }
    case QMetaType::QDateTime: {
        const qint64 ms = referenceDate().msecsTo(value.toDateTime());
        const qint64 sec = ms / 1000;
        if (sec < std::numeric_limits<int32_t>::min() || sec > std::numeric_limits<int32_t>::max())
            return nullptr;
        return PlistPtr(plist_new_date(static_cast<int32_t>(sec), static_cast<int32_t>((ms % 1000) * 1000)));
    }
    default:
        return nullptr;
    }
}

} // namespace

std::optional<QVariant> parse(QByteArrayView bytes)
{
    if (bytes.isEmpty() || bytes.size() > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    plist_t raw = nullptr;
    plist_from_memory(bytes.data(), static_cast<uint32_t>(bytes.size()), &raw);
    PlistPtr root(raw);
    if (!root)
        return std::nullopt;
    return toVariant(root.get(), 0);
}

std::optional<QVariant> readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    return parse(file.readAll());
}

std::optional<QByteArray> toXml(const QVariant& value)
{
    PlistPtr root = fromVariant(value, 0);
    if (!root)
        return std::nullopt;
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    if (!xml)
        return std::nullopt;
    QByteArray result(xml, static_cast<qsizetype>(length));
    plist_to_xml_free(xml);
    return result;
}

Status writeXmlFile(const QString& path, const QVariant& value)
{
    const auto xml = toXml(value);
    if (!xml)
        return Status::error(
            QStringLiteral("%1: the value holds a type a property list cannot store").arg(path));
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder))
        return Status::error(QStringLiteral("%1: cannot create the folder").arg(folder));

    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return Status::error(QStringLiteral("%1: %2").arg(path, file.errorString()));
    if (file.write(*xml) != xml->size()) {
        file.cancelWriting();
        return Status::error(QStringLiteral("%1: %2").arg(path, file.errorString()));
    }
    if (!file.commit())
        return Status::error(QStringLiteral("%1: %2").arg(path, file.errorString()));
    return Status::ok();
}

} // namespace talvo::plist
