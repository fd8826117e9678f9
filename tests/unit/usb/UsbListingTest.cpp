#include "discovery/UsbListing.h"

#include <gtest/gtest.h>

namespace talvo {

void PrintTo(const UsbDevice& d, std::ostream* os)
{
    *os << QStringList{d.deviceClass, d.uri, d.makeAndModel, d.info, d.deviceId, d.location, d.model}
               .join(u'|')
               .toStdString();
}

namespace {

// The fields in declaration order, '|' apart: class|URI|make and model|info|ID|location|model.
std::optional<UsbDevice> dev(const char* fields)
{
    const QStringList f = QString::fromLatin1(fields).split(u'|');
    return UsbDevice{f[0], f[1], f[2], f[3], f[4], f[5], f[6]};
}

struct ListingCase
{
    const char* name;
    QByteArray output;
    bool reportsNoDevice;
    std::vector<std::optional<UsbDevice>> devices; // one per entry, nullopt for one that is no device
};

void check(const ListingCase& c, const UsbListing& listing)
{
    SCOPED_TRACE(c.name);
    EXPECT_EQ(listing.reportsNoDevice, c.reportsNoDevice);
    std::vector<std::optional<UsbDevice>> devices;
    for (const UsbListingEntry& e : listing.entries)
        devices.push_back(e.device);
    EXPECT_EQ(devices, c.devices);
}

TEST(UsbListing, CurrentFormatReadsFourToSixFieldsALine)
{
    const ListingCase cases[] = {
        {"six fields",
         R"(direct usb://TALVO/Model%20X?serial=ABC "TALVO Model X" "TALVO Model X USB #1" "MFG:TALVO;MDL:Model X;" "")"
         "\n",
         false,
         {dev(
             "direct|usb://TALVO/Model%20X?serial=ABC|TALVO Model X|TALVO Model X USB #1|MFG:TALVO;MDL:Model "
             "X;||Model X")}},
        {"four fields",
         R"(direct usb://a/b "A B" "A B USB")",
         false,
         {dev("direct|usb://a/b|A B|A B USB|||")}},
        {"five fields", R"(direct usb://a/b "A" "B" "MDL:M")", false, {dev("direct|usb://a/b|A|B|MDL:M||M")}},
        {"escapes",
         R"(direct usb://a/b "Say \"hi\"" "C:\\x" "MDL:\"Q\\;" "\R")",
         false,
         {dev(R"(direct|usb://a/b|Say "hi"|C:\x|MDL:"Q\;|R|"Q\)")}},
        {"odd spacing",
         "\n  direct\tusb://a/b   \"A\"\t\"B\"\"MDL:M;\"  \r\n\n",
         false,
         {dev("direct|usb://a/b|A|B|MDL:M;||M")}},
        {"lines in order, blank ones skipped",
         "direct usb://a \"A\"\n \t\ndirect usb://b \"B\" \"b\"\n",
         false,
         {std::nullopt, dev("direct|usb://b|B|b|||")}},
        {"malformed lines",
         "direct\n"
         "direct usb://a \"1\" \"2\" \"3\" \"4\" \"5\"\n"
         "direct usb://a \"A\" \"B\n"
         "direct usb://a \"A\" \"B\\\n"
         "direct usb://a \"A\" x \"B\"\n",
         false,
         {std::nullopt, std::nullopt, std::nullopt, std::nullopt, std::nullopt}},
        {"empty output", "", true, {}},
        {"blanks only", " \n\t\n", false, {}},
        {"a byte that is not ASCII", "direct usb://a/b \"A\" \"B\" \"MDL:Mod\xc3\xa8le;\"\n", true, {}},
    };
    for (const ListingCase& c : cases)
        check(c, parseUsbListing(c.output));
}

TEST(UsbListing, LegacyFormatTakesTheSecondQuotedFieldAsModel)
{
    const ListingCase cases[] = {
        {"one device",
         R"(direct usb://TALVO/Model%20X "TALVO Model X" "Model X")"
         "\n",
         false,
         {dev("|usb://TALVO/Model%20X|TALVO Model X|Model X|||Model X")}},
        {"scheme in any case, two devices",
         "x USB://a \"A\" \"M1\"\nx usb://b \"B\" \"M2\"",
         false,
         {dev("|USB://a|A|M1|||M1"), dev("|usb://b|B|M2|||M2")}},
        {"a URI inside the fields is no device",
         "usb://a \"A usb://x\" \"M\"",
         false,
         {dev("|usb://a|A usb://x|M|||M")}},
        {"last field unclosed", "usb://a \"A\" \"M", false, {dev("|usb://a|A|M|||M")}},
        {"fields not apart", "usb://a \"A\"\"M\"", false, {std::nullopt}},
        {"URI alone", "usb://a\n", false, {std::nullopt}},
        {"no usb URI", "direct ipp://h/p \"A\" \"M\"\n", true, {}},
        {"empty output", "", true, {}},
        {"a byte that is not ASCII", "usb://a \"A\" \"M\xff\"", true, {}},
    };
    for (const ListingCase& c : cases)
        check(c, parseLegacyUsbListing(c.output));
}

TEST(UsbListing, DeviceIdPairsAreTakenAsWritten)
{
    const auto s = [](const char* t) { return QString::fromLatin1(t); };
    const struct
    {
        const char* id;
        QMap<QString, QString> expected;
    } cases[] = {
        {"MFG:TALVO;MDL:Model X;CMD:PS;",
         {{s("MFG"), s("TALVO")}, {s("MDL"), s("Model X")}, {s("CMD"), s("PS")}}},
        {"MDL:A;MDL:B", {{s("MDL"), s("B")}}},
        {"mdl:x;URL:http://h;", {{s("mdl"), s("x")}}},
        {" MDL: Model X ;", {{s(" MDL"), s(" Model X ")}}},
        {";;:;MDL", {{s(""), s("")}}},
        {"", {}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(parseIEEE1284DeviceId(QString::fromLatin1(c.id)), c.expected) << c.id;
}

} // namespace
} // namespace talvo
