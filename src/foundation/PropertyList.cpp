#include "foundation/PropertyList.h"

#include "foundation/FileAccess.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QTimeZone>

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <memory>
#include <string_view>
#include <system_error>
#include <vector>

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

// --- Nesting, measured before libplist sees the bytes ------------------------

// A binary list may name one object from many places, and libplist builds a
// copy for each: no more values than an XML file of the size limit could
// hold (the shortest XML value, "<true/>", takes seven bytes).
constexpr qint64 kMaxBinaryValues = kMaxFileBytes / 7;

// Heights are kept in a byte per object.
static_assert(kMaxDepth < 255);

// What measuring the bytes found.
enum class Shape {
    Within,
    TooDeep,   // more containers open at once than the limit
    TooMany,   // a binary list expanding to more than kMaxBinaryValues values
    Malformed, // not read the way libplist would read it, or not at all
};

bool startsWith(std::string_view text, std::size_t at, std::string_view prefix)
{
    return text.substr(at, prefix.size()) == prefix;
}

// Whether the double quotes in text[from, to) pair up. Inside processing
// instructions, a DOCTYPE and a tag's attributes, libplist skips quoted text
// when it looks for the end; when the quotes before the first possible end
// pair up, skipping them or not finds the same end, so the scan below and
// libplist cannot disagree on where the construct stops.
bool quotesPair(std::string_view text, std::size_t from, std::size_t to)
{
    return std::count(text.begin() + static_cast<std::ptrdiff_t>(from),
                      text.begin() + static_cast<std::ptrdiff_t>(to), '"') %
               2 ==
           0;
}

// Whether at some point more than `limit` arrays and dictionaries are open.
// The scan follows libplist's reader: comments, CDATA sections, processing
// instructions and a DOCTYPE are skipped, every other "<" starts a tag whose
// name ends at a blank, "<" or ">", and a "/" just before its ">" makes it
// empty. Whatever the two could read differently (a DOCTYPE with an internal
// subset, quotes that do not pair, an unterminated construct) is refused:
// no file of ours holds one, and a false refusal only means defaults.
Shape xmlNesting(std::string_view text, int limit)
{
    int depth = 0;
    std::size_t at = 0;
    for (;;) {
        at = text.find('<', at);
        if (at == std::string_view::npos)
            return Shape::Within;
        ++at;
        std::size_t end = 0;
        if (startsWith(text, at, "!--")) {
            end = text.find("-->", at + 3);
            if (end == std::string_view::npos)
                return Shape::Malformed;
            at = end + 3;
        } else if (startsWith(text, at, "![CDATA[")) {
            end = text.find("]]>", at + 8);
            if (end == std::string_view::npos)
                return Shape::Malformed;
            at = end + 3;
        } else if (startsWith(text, at, "?")) {
            end = text.find("?>", at + 1);
            if (end == std::string_view::npos || !quotesPair(text, at, end))
                return Shape::Malformed;
            at = end + 2;
        } else if (startsWith(text, at, "!DOCTYPE")) {
            end = text.find_first_of("[>", at + 8);
            if (end == std::string_view::npos || text[end] == '[' || !quotesPair(text, at, end))
                return Shape::Malformed;
            at = end + 1;
        } else if (startsWith(text, at, "!")) {
            return Shape::Malformed;
        } else {
            const std::size_t nameEnd = text.find_first_of(" \r\n\t<>", at);
            if (nameEnd == std::string_view::npos)
                return Shape::Malformed;
            end = text[nameEnd] == '>' ? nameEnd : text.find_first_of("<>", nameEnd);
            if (end == std::string_view::npos || text[end] == '<' || !quotesPair(text, nameEnd, end))
                return Shape::Malformed;
            std::string_view name = text.substr(at, nameEnd - at);
            const bool empty = text[end - 1] == '/';
            if (empty && name.ends_with('/'))
                name.remove_suffix(1);
            const bool container = name == "array" || name == "dict";
            const bool closing = name == "/array" || name == "/dict";
            if (empty && closing)
                return Shape::Malformed;
            if (container && !empty && ++depth > limit)
                return Shape::TooDeep;
            if (closing && depth > 0)
                --depth;
            at = end + 1;
        }
    }
}

quint64 bigEndian(const uchar* bytes, unsigned width)
{
    quint64 value = 0;
    for (unsigned i = 0; i < width; ++i)
        value = value << 8 | bytes[i];
    return value;
}

// Whether the binary list's object graph, followed from its top object as
// libplist follows it, nests more than `limit` containers deep or expands to
// more than kMaxBinaryValues values. Each object is measured once (its height
// and expanded size kept), so shared objects cost nothing extra, and the walk
// keeps its own stack, which the depth limit bounds. A cycle, a reference or
// offset out of range, or a count field libplist would read otherwise is
// refused.
Shape binaryNesting(QByteArrayView bytes, int limit)
{
    constexpr qsizetype kHeaderSize = 8; // "bplist00"
    constexpr qsizetype kTrailerSize = 32;
    if (bytes.size() < kHeaderSize + kTrailerSize)
        return Shape::Malformed;
    const auto* data = reinterpret_cast<const uchar*>(bytes.data());
    const uchar* trailer = data + bytes.size() - kTrailerSize;
    const unsigned offsetSize = trailer[6];
    const unsigned refSize = trailer[7];
    const quint64 objects = bigEndian(trailer + 8, 8);
    const quint64 top = bigEndian(trailer + 16, 8);
    const quint64 table = bigEndian(trailer + 24, 8);
    const auto tableLimit = static_cast<quint64>(bytes.size() - kTrailerSize);
    if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || objects == 0 ||
        objects > static_cast<quint64>(kMaxBinaryValues) || top >= objects || table < kHeaderSize ||
        table > tableLimit || objects > (tableLimit - table) / offsetSize)
        return Shape::Malformed;

    // The references an object holds: none for a scalar; for an array or a
    // set one per element, for a dictionary one per key and one per value.
    struct Refs
    {
        bool valid = false;
        bool container = false;
        const uchar* first = nullptr;
        quint64 count = 0;
    };
    const auto refsOf = [&](quint64 object) {
        const quint64 offset = bigEndian(data + table + object * offsetSize, offsetSize);
        if (offset < kHeaderSize || offset >= table)
            return Refs{};
        const unsigned type = data[offset] >> 4u;
        if (type != 0xa && type != 0xc && type != 0xd)
            return Refs{.valid = true};
        quint64 count = data[offset] & 0x0fu;
        quint64 at = offset + 1;
        if (count == 0x0f) {
            if (at >= table || data[at] >> 4u != 0x1 || (data[at] & 0x0fu) > 3)
                return Refs{};
            const unsigned width = 1u << (data[at] & 0x0fu);
            if (at + 1 + width > table)
                return Refs{};
            count = bigEndian(data + at + 1, width);
            at += 1 + width;
        }
        const quint64 perEntry = type == 0xd ? 2 : 1;
        if (count > (table - at) / refSize / perEntry)
            return Refs{};
        return Refs{.valid = true, .container = true, .first = data + at, .count = count * perEntry};
    };

    enum class Seen : uchar { No, OnPath, Measured };
    const auto n = static_cast<std::size_t>(objects);
    std::vector<Seen> seen(n, Seen::No);
    std::vector<uchar> height(n, 0); // containers on the longest way down
    std::vector<quint32> values(n, 0);
    struct Frame
    {
        quint64 object;
        Refs refs;
        quint64 next = 0;
        int childHeight = 0;
        qint64 values = 1;
    };
    std::vector<Frame> path;
    const auto enter = [&](quint64 object) {
        const Refs refs = refsOf(object);
        if (!refs.valid)
            return Shape::Malformed;
        if (path.size() > static_cast<std::size_t>(limit))
            return Shape::TooDeep;
        seen[object] = Seen::OnPath;
        path.push_back({object, refs});
        return Shape::Within;
    };
    // A child's measure goes into its parent's; false when that is too much.
    const auto addChild = [&](Frame& parent, int childHeight, qint64 childValues) {
        parent.childHeight = std::max(parent.childHeight, childHeight);
        parent.values += childValues;
        return parent.values <= kMaxBinaryValues;
    };

    if (const Shape entered = enter(top); entered != Shape::Within)
        return entered;
    while (!path.empty()) {
        Frame& frame = path.back();
        if (frame.next < frame.refs.count) {
            const quint64 child = bigEndian(frame.refs.first + frame.next * refSize, refSize);
            ++frame.next;
            if (child >= objects || seen[child] == Seen::OnPath)
                return Shape::Malformed;
            if (seen[child] == Seen::Measured) {
                if (!addChild(frame, height[child], values[child]))
                    return Shape::TooMany;
            } else if (const Shape entered = enter(child); entered != Shape::Within) {
                return entered;
            }
            continue;
        }
        const int ownHeight = frame.refs.container ? frame.childHeight + 1 : 0;
        if (ownHeight > limit)
            return Shape::TooDeep;
        const quint64 object = frame.object;
        const qint64 ownValues = frame.values;
        seen[object] = Seen::Measured;
        height[object] = static_cast<uchar>(ownHeight);
        values[object] = static_cast<quint32>(ownValues);
        path.pop_back();
        if (!path.empty() && !addChild(path.back(), ownHeight, ownValues))
            return Shape::TooMany;
    }
    return Shape::Within;
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

std::optional<QVariant> parse(QByteArrayView bytes, QString& why)
{
    why = QStringLiteral("it is not a property list");
    if (bytes.isEmpty() || bytes.size() > std::numeric_limits<uint32_t>::max())
        return std::nullopt;
    // The bytes are measured the way the reader libplist is about to choose
    // will read them.
    const auto size = static_cast<uint32_t>(bytes.size());
    const Shape shape =
        plist_is_binary(bytes.data(), size)
            ? binaryNesting(bytes, kMaxDepth)
            : xmlNesting(std::string_view(bytes.data(), static_cast<std::size_t>(size)), kMaxDepth);
    switch (shape) {
    case Shape::Within:
        break;
    case Shape::TooDeep:
        why = QStringLiteral("it nests arrays or dictionaries deeper than %1 levels").arg(kMaxDepth);
        return std::nullopt;
    case Shape::TooMany:
        why = QStringLiteral("it expands to more than %1 values").arg(kMaxBinaryValues);
        return std::nullopt;
    case Shape::Malformed:
        return std::nullopt;
    }
    plist_t raw = nullptr;
    plist_from_memory(bytes.data(), size, &raw);
    PlistPtr root(raw);
    if (!root)
        return std::nullopt;
    if (plist_is_binary(bytes.data(), size)) {
        // A binary key can hold a NUL (or a UTF-16 one that converts so),
        // and libplist's only getter for keys asserts on that and aborts the
        // program. Its XML writer copes, and keys read back from XML are whole
        // strings: the list is passed through XML once.
        char* xml = nullptr;
        uint32_t xmlSize = 0;
        plist_to_xml(root.get(), &xml, &xmlSize);
        const CString text(xml);
        plist_t reread = nullptr;
        if (text)
            plist_from_xml(text.get(), xmlSize, &reread);
        root.reset(reread);
        if (!root)
            return std::nullopt;
    }
    auto value = toVariant(root.get(), 0);
    if (!value)
        why = QStringLiteral("it holds a value that cannot be read");
    return value;
}

} // namespace

std::optional<QVariant> parse(QByteArrayView bytes)
{
    QString ignored;
    return parse(bytes, ignored);
}

Loaded loadFile(const QString& path)
{
    Loaded result;
    file::ReadResult read = file::readRegularFile(path, kMaxFileBytes);
    switch (read.outcome) {
    case file::ReadOutcome::Read:
        break;
    case file::ReadOutcome::Missing:
        result.outcome = LoadOutcome::Missing;
        break;
    case file::ReadOutcome::NotRegular:
        result.outcome = LoadOutcome::NotAFile;
        break;
    case file::ReadOutcome::TooLarge:
        result.outcome = LoadOutcome::Invalid;
        break;
    case file::ReadOutcome::Unreadable:
        result.outcome = LoadOutcome::Unreadable;
        break;
    }
    if (read.outcome != file::ReadOutcome::Read) {
        result.error = std::move(read.error);
        return result;
    }
    QString why;
    std::optional<QVariant> value = parse(read.bytes, why);
    if (!value) {
        result.outcome = LoadOutcome::Invalid;
        result.error = QStringLiteral("Cannot read %1: %2").arg(path, why);
        return result;
    }
    result.outcome = LoadOutcome::Loaded;
    result.value = std::move(*value);
    return result;
}

std::optional<QVariant> readFile(const QString& path)
{
    Loaded loaded = loadFile(path);
    if (loaded.outcome != LoadOutcome::Loaded)
        return std::nullopt;
    return std::move(loaded.value);
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
    std::error_code error;
    std::filesystem::create_directories(QFile::encodeName(folder).toStdString(), error);
    if (error)
        return Status::error(QStringLiteral("Cannot write %1: cannot create its folder %2: %3")
                                 .arg(path, folder, QString::fromStdString(error.message())));
    return file::writeAtomically(path, *xml);
}

} // namespace talvo::plist
