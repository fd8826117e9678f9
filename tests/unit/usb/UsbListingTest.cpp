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
    };
    for (const ListingCase& c : cases)
        check(c, parseLegacyUsbListing(c.output));
}

// Devices name themselves in UTF-8 or, older ones, in ISO Latin 1: each line
// is read in whichever it is, and never costs the other lines their devices.
TEST(UsbListing, EachLineIsReadAsUtf8ElseAsLatin1)
{
    const QByteArray latin1 = "direct usb://a \"Caf\xe9 M1\" \"d\" \"MDL:Mod\xe8le 1;\"\n";
    const QByteArray utf8 = "direct usb://b \"Caf\xc3\xa9 M2\" \"d\" \"MDL:Mod\xc3\xa8le 2;\"\n";
    const QByteArray plain = "direct usb://c \"C\" \"d\" \"MDL:M3;\"\n";
    const auto a = dev("direct|usb://a|Caf\xe9 M1|d|MDL:Mod\xe8le 1;||Mod\xe8le 1");
    const auto b = dev("direct|usb://b|Caf\xe9 M2|d|MDL:Mod\xe8le 2;||Mod\xe8le 2");
    const auto m3 = dev("direct|usb://c|C|d|MDL:M3;||M3");
    const ListingCase cases[] = {
        {"Latin 1 first", latin1 + utf8 + plain, false, {a, b, m3}},
        {"UTF-8 first", utf8 + plain + latin1, false, {b, m3, a}},
        // One byte that is not UTF-8 makes the whole line Latin 1, the
        // two-byte "é" beside it included.
        {"mixed line",
         "direct usb://d \"\xc3\xa9\" \"\xe9\"",
         false,
         {dev("direct|usb://d|\xc3\xa9|\xe9|||")}},
    };
    for (const ListingCase& c : cases)
        check(c, parseUsbListing(c.output));

    const ListingCase legacy{
        "legacy",
        "usb://a \"A\" \"Mod\xe8le\"\nusb://b \"B\" \"Mod\xc3\xa8le\"",
        false,
        {dev("|usb://a|A|Mod\xe8le|||Mod\xe8le"), dev("|usb://b|B|Mod\xe8le|||Mod\xe8le")}};
    check(legacy, parseLegacyUsbListing(legacy.output));
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
