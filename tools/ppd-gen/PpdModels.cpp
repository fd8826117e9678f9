// The four Talvo models: their page sizes, options, the SNMP objects under
// which each printer reports its installable options, and their constraints.

#include "PpdModel.h"

#include <algorithm>
#include <cmath>

namespace talvo::ppdgen {
namespace {

// The configuration objects of Talvo printers.
const std::string kMemoryOid = ".1.3.6.1.4.1.58101.3.1.1.0";         // memory in KiB
const std::string kTraysOid = ".1.3.6.1.4.1.58101.3.1.2.0";          // optional trays fitted
const std::string kDuplexerOid = ".1.3.6.1.4.1.58101.3.1.3.0";       // 1 fitted, 0 not
const std::string kHardDiskOid = ".1.3.6.1.4.1.58101.3.1.4.0";       // 1 fitted, 0 not
const std::string kEnvelopeFeederOid = ".1.3.6.1.4.1.58101.3.1.5.0"; // "present" or "absent"
const std::string kFinisherOid = ".1.3.6.1.4.1.58101.3.1.6.0";       // "none", "stapler", "booklet"

double mm(double millimetres)
{
    return std::round(millimetres * 72.0 / 25.4 * 100.0) / 100.0;
}

std::vector<Media> allMedia()
{
    using enum MediaClass;
    std::vector<Media> media = {
        {"Letter", "US Letter", 612, 792, Cassette},
        {"Legal", "US Legal", 612, 1008, Cassette},
        {"Executive", "Executive", 522, 756, Cassette},
        {"Statement", "Statement", 396, 612, Cassette},
        {"A4", "A4", 595, 842, Cassette},
        {"A5", "A5", 420, 595, Cassette},
        {"B5", "B5 (JIS)", 516, 729, Cassette},
        {"ISOB5", "B5 (ISO)", 499, 709, Cassette},
        {"FanFoldGermanLegal", "Fanfold 8.5x13 in", 612, 936, Cassette},
        {"A3", "A3", 842, 1191, Large},
        {"Tabloid", "Tabloid", 792, 1224, Large},
        {"B4", "B4 (JIS)", 729, 1032, Large},
        {"ISOB4", "B4 (ISO)", 709, 1001, Large},
        {"A6", "A6", 297, 420, Small},
        {"A7", "A7", 210, 298, Small},
        {"B6", "B6 (JIS)", 363, 516, Small},
        {"Postcard", "Postcard", 284, 419, Small},
        {"DoublePostcardRotated", "Double Postcard", 567, 419, Small},
        {"Env10", "Envelope #10", 297, 684, Envelope},
        {"Env9", "Envelope #9", 279, 639, Envelope},
        {"Env11", "Envelope #11", 324, 747, Envelope},
        {"Env12", "Envelope #12", 342, 792, Envelope},
        {"Env14", "Envelope #14", 360, 828, Envelope},
        {"EnvMonarch", "Envelope Monarch", 279, 540, Envelope},
        {"EnvPersonal", "Envelope Personal", 261, 468, Envelope},
        {"EnvDL", "Envelope DL", 312, 624, Envelope},
        {"EnvC4", "Envelope C4", 649, 918, Envelope},
        {"EnvC5", "Envelope C5", 459, 649, Envelope},
        {"EnvC6", "Envelope C6", 323, 459, Envelope},
        {"EnvC65", "Envelope C65", 323, 649, Envelope},
        {"EnvChou3", "Envelope Chou 3", 340, 666, Envelope},
        {"EnvChou4", "Envelope Chou 4", 255, 581, Envelope},
        {"EnvKaku2", "Envelope Kaku 2", 680, 941, Envelope},
        {"EnvYou4", "Envelope You 4", 298, 666, Envelope},
        {"EnvInvite", "Envelope Invite", 624, 624, Envelope},
        {"EnvItalian", "Envelope Italian", 312, 652, Envelope},
        {"EnvPRC1", "Envelope PRC 1", 289, 468, Envelope},
        {"EnvPRC2", "Envelope PRC 2", 289, 499, Envelope},
        {"EnvISOB6", "Envelope B6", 354, 499, Envelope},
        {"EnvPRC4", "Envelope PRC 4", 312, 590, Envelope},
        {"EnvPRC7", "Envelope PRC 7", 454, 652, Envelope},
        {"EnvPRC8", "Envelope PRC 8", 340, 876, Envelope},
        {"3x5", "Index Card 3x5 in", 216, 360, Photo},
        {"4x6", "Index Card 4x6 in", 288, 432, Photo},
        {"5x7", "Photo 5x7 in", 360, 504, Photo},
        {"5x8", "Index Card 5x8 in", 360, 576, Photo},
        {"8x10", "Photo 8x10 in", 576, 720, Photo},
    };
    // Long sheets fed one at a time from the multipurpose tray.
    for (const int width : {210, 297}) {
        for (int length = width == 210 ? 450 : 600; length <= 1200; length += 50) {
            const std::string size = std::to_string(width) + "x" + std::to_string(length);
            media.push_back({size + "mm", "Banner " + size + " mm", mm(width), mm(length), Banner});
        }
    }
    return media;
}

std::vector<Media> mediaOf(std::initializer_list<MediaClass> classes,
                           const std::vector<std::string>& without = {})
{
    std::vector<Media> media;
    for (const Media& m : allMedia()) {
        if (std::find(classes.begin(), classes.end(), m.kind) != classes.end() &&
            std::find(without.begin(), without.end(), m.name) == without.end())
            media.push_back(m);
    }
    return media;
}

// --- Installable options ----------------------------------------------------

Option memory(const std::vector<int>& megabytes)
{
    Option o{"Memory",
             "Installed Memory",
             "PickOne",
             "10 AnySetup",
             {},
             {},
             false,
             kMemoryOid,
             "currentsystemparams /RamSize get 1048576 div == flush"};
    for (const int mb : megabytes) {
        const std::string keyword = mb >= 1024 ? std::to_string(mb / 1024) + "GB" : std::to_string(mb) + "MB";
        const std::string text = mb >= 1024 ? std::to_string(mb / 1024) + " GB" : std::to_string(mb) + " MB";
        o.choices.push_back({keyword, text, "", std::to_string(mb * 1024)});
    }
    o.defaultChoice = o.choices.front().keyword;
    return o;
}

Option optionalTrays(int fitted)
{
    static const Choice kChoices[] = {{"None", "Not Installed", "", "0"},
                                      {"Tray3", "1 Tray (Tray 3)", "", "1"},
                                      {"Tray3_4", "2 Trays (Trays 3-4)", "", "2"},
                                      {"Tray3_5", "3 Trays (Trays 3-5)", "", "3"}};
    Option o{
        "OptionalTrays", "Optional Paper Trays", "PickOne", "10 AnySetup", "None", {}, false, kTraysOid, ""};
    o.choices.assign(kChoices, kChoices + fitted + 1);
    return o;
}

// An option whose choices are fitted or not.
Option fitted(const std::string& keyword, const std::string& text, const std::string& oid, bool bare,
              const std::string& yes, const std::string& no)
{
    return {keyword,       text,    "Boolean",
            "10 AnySetup", "False", {{"True", "Installed", "", yes}, {"False", "Not Installed", "", no}},
            bare,          oid,     ""};
}

Option finisher()
{
    return {"Finisher",
            "Finisher",
            "PickOne",
            "10 AnySetup",
            "None",
            {{"None", "Not Installed", "", "none"},
             {"Stapler", "Stapler", "", "stapler"},
             {"Booklet", "Booklet Maker", "", "booklet"}},
            false,
            kFinisherOid,
            ""};
}

// --- Printing options -------------------------------------------------------

std::string pageDevice(const std::string& entries)
{
    return "<<" + entries + ">>setpagedevice";
}

Option inputSlot(int cassettes, bool envelopeFeeder)
{
    Option o{"InputSlot", "Paper Source", "PickOne", "20 AnySetup", "Auto", {}, false, "", ""};
    o.choices.push_back({"Auto", "Automatic", pageDevice("/ManualFeed false/MediaPosition null"), ""});
    o.choices.push_back(
        {"Tray1", "Tray 1 (Multipurpose)", pageDevice("/ManualFeed false/MediaPosition 1"), ""});
    for (int tray = 2; tray <= 1 + cassettes; ++tray)
        o.choices.push_back({"Tray" + std::to_string(tray), "Tray " + std::to_string(tray),
                             pageDevice("/ManualFeed false/MediaPosition " + std::to_string(tray)), ""});
    if (envelopeFeeder)
        o.choices.push_back(
            {"Envelope", "Envelope Feeder", pageDevice("/ManualFeed false/MediaPosition 9"), ""});
    o.choices.push_back({"Manual", "Manual Feed", pageDevice("/ManualFeed true"), ""});
    return o;
}

Option mediaType(bool full)
{
    Option o{"MediaType", "Media Type", "PickOne", "25 AnySetup", "Plain", {}, false, "", ""};
    const std::pair<const char*, const char*> basic[] = {
        {"Plain", "Plain Paper"},         {"Thin", "Thin Paper"},     {"Thick", "Thick Paper"},
        {"Recycled", "Recycled Paper"},   {"Labels", "Labels"},       {"Envelope", "Envelope"},
        {"Transparency", "Transparency"}, {"CardStock", "Card Stock"}};
    const std::pair<const char*, const char*> more[] = {
        {"ExtraThick", "Extra Thick Paper"}, {"Letterhead", "Letterhead"}, {"Preprinted", "Preprinted Paper"},
        {"Prepunched", "Prepunched Paper"},  {"Colored", "Colored Paper"}, {"Bond", "Bond Paper"},
        {"Glossy", "Glossy Paper"},          {"Postcard", "Postcard"}};
    for (const auto& [keyword, text] : basic)
        o.choices.push_back({keyword, text, pageDevice(std::string("/MediaType (") + keyword + ")"), ""});
    if (full) {
        for (const auto& [keyword, text] : more)
            o.choices.push_back({keyword, text, pageDevice(std::string("/MediaType (") + keyword + ")"), ""});
    }
    return o;
}

Option duplex()
{
    return {"Duplex",
            "Two-Sided",
            "PickOne",
            "50 AnySetup",
            "None",
            {{"None", "Off", pageDevice("/Duplex false/Tumble false"), ""},
             {"DuplexNoTumble", "Long-Edge Binding", pageDevice("/Duplex true/Tumble false"), ""},
             {"DuplexTumble", "Short-Edge Binding", pageDevice("/Duplex true/Tumble true"), ""}},
            false,
            "",
            ""};
}

Option onOff(const std::string& keyword, const std::string& text, const std::string& order,
             const std::string& key, const std::string& defaultChoice)
{
    return {keyword,
            text,
            "Boolean",
            order,
            defaultChoice,
            {{"True", "On", pageDevice("/" + key + " true"), ""},
             {"False", "Off", pageDevice("/" + key + " false"), ""}},
            false,
            "",
            ""};
}

Option colorModel()
{
    return {"ColorModel",
            "Color Mode",
            "PickOne",
            "30 AnySetup",
            "CMYK",
            {{"CMYK", "Color", pageDevice("/ProcessColorModel /DeviceCMYK"), ""},
             {"Gray", "Grayscale", pageDevice("/ProcessColorModel /DeviceGray"), ""}},
            false,
            "",
            ""};
}

Option outputBin(bool finisherBin)
{
    Option o{"OutputBin",
             "Output Bin",
             "PickOne",
             "40 AnySetup",
             "Standard",
             {{"Standard", "Standard Output Bin", pageDevice("/OutputType (Standard)"), ""},
              {"FaceUp", "Face-Up Tray", pageDevice("/OutputType (FaceUp)"), ""}},
             false,
             "",
             ""};
    if (finisherBin)
        o.choices.push_back({"FinisherBin", "Finisher Bin", pageDevice("/OutputType (Finisher)"), ""});
    return o;
}

Option resolution(bool high)
{
    Option o{"Resolution",
             "Resolution",
             "PickOne",
             "10 AnySetup",
             "600dpi",
             {{"600dpi", "600 dpi", pageDevice("/HWResolution [600 600]"), ""},
              {"1200dpi", "1200 dpi", pageDevice("/HWResolution [1200 1200]"), ""}},
             false,
             "",
             ""};
    if (high)
        o.choices.push_back({"2400dpi", "2400 dpi", pageDevice("/HWResolution [2400 600]"), ""});
    return o;
}

std::vector<Option> finishing()
{
    auto staple = [](int position) { return pageDevice("/Staple " + std::to_string(position)); };
    auto punch = [](int holes) { return pageDevice("/Punch " + std::to_string(holes)); };
    return {{"StapleLocation",
             "Staple",
             "PickOne",
             "60 AnySetup",
             "None",
             {{"None", "None", staple(0), ""},
              {"UpperLeft", "Top Left", staple(1), ""},
              {"UpperRight", "Top Right", staple(2), ""},
              {"DualLeft", "Two on Left", staple(3), ""},
              {"DualTop", "Two on Top", staple(4), ""},
              {"SaddleStitch", "Saddle Stitch", staple(5), ""}},
             false,
             "",
             ""},
            {"Punch",
             "Hole Punch",
             "PickOne",
             "60 AnySetup",
             "None",
             {{"None", "None", punch(0), ""},
              {"2Hole", "2 Holes", punch(2), ""},
              {"3Hole", "3 Holes", punch(3), ""},
              {"4Hole", "4 Holes", punch(4), ""}},
             false,
             "",
             ""}};
}

// --- Constraints ------------------------------------------------------------

const Option* findOption(const Model& model, const std::string& keyword)
{
    for (const Option& o : model.installable.options) {
        if (o.keyword == keyword)
            return &o;
    }
    for (const Group& g : model.groups) {
        for (const Option& o : g.options) {
            if (o.keyword == keyword)
                return &o;
        }
    }
    return nullptr;
}

bool hasChoice(const Model& model, const std::string& option, const std::string& choice)
{
    const Option* o = findOption(model, option);
    return o && std::any_of(o->choices.begin(), o->choices.end(),
                            [&](const Choice& c) { return c.keyword == choice; });
}

// Each constraint both ways, as the PPD format wants; pairs the model lacks
// are left out.
void forbid(Model& model, const std::string& option1, const std::string& choice1, const std::string& option2,
            const std::string& choice2)
{
    if (!hasChoice(model, option1, choice1) || (option2 != "PageSize" && !hasChoice(model, option2, choice2)))
        return;
    model.constraints.push_back({option1, choice1, option2, choice2});
    model.constraints.push_back({option2, choice2, option1, choice1});
}

void addConstraints(Model& model)
{
    for (const char* d : {"DuplexNoTumble", "DuplexTumble"})
        forbid(model, "OptionalDuplexer", "False", "Duplex", d);
    const char* trays[] = {"None", "Tray3", "Tray3_4", "Tray3_5"};
    for (int fitted = 0; fitted < 3; ++fitted) {
        for (int tray = 3 + fitted; tray <= 5; ++tray)
            forbid(model, "OptionalTrays", trays[fitted], "InputSlot", "Tray" + std::to_string(tray));
    }
    forbid(model, "EnvelopeFeeder", "False", "InputSlot", "Envelope");
    for (const char* staple : {"UpperLeft", "UpperRight", "DualLeft", "DualTop", "SaddleStitch"})
        forbid(model, "Finisher", "None", "StapleLocation", staple);
    forbid(model, "Finisher", "Stapler", "StapleLocation", "SaddleStitch");
    for (const char* holes : {"2Hole", "3Hole", "4Hole"})
        forbid(model, "Finisher", "None", "Punch", holes);
    forbid(model, "Finisher", "None", "OutputBin", "FinisherBin");

    // Sizes and media each paper path cannot take.
    const std::vector<std::string> noDuplex = {"DuplexNoTumble", "DuplexTumble"};
    const std::vector<std::string> staples = {"UpperLeft", "UpperRight", "DualLeft", "DualTop",
                                              "SaddleStitch"};
    const std::vector<std::string> holes = {"2Hole", "3Hole", "4Hole"};
    for (const Media& m : model.media) {
        const bool cassette = m.kind == MediaClass::Cassette || m.kind == MediaClass::Large;
        for (int tray = 2; tray <= 5 && !cassette; ++tray)
            forbid(model, "InputSlot", "Tray" + std::to_string(tray), "PageSize", m.name);
        if (m.kind != MediaClass::Envelope)
            forbid(model, "InputSlot", "Envelope", "PageSize", m.name);
        if (cassette)
            continue;
        for (const std::string& d : noDuplex)
            forbid(model, "Duplex", d, "PageSize", m.name);
        for (const std::string& s : staples)
            forbid(model, "StapleLocation", s, "PageSize", m.name);
        for (const std::string& h : holes)
            forbid(model, "Punch", h, "PageSize", m.name);
    }
    for (const char* type : {"Labels", "Transparency", "Envelope", "CardStock"}) {
        for (const std::string& d : noDuplex)
            forbid(model, "Duplex", d, "MediaType", type);
        for (const std::string& s : staples)
            forbid(model, "StapleLocation", s, "MediaType", type);
    }
    for (int tray = 2; tray <= 5; ++tray)
        forbid(model, "InputSlot", "Tray" + std::to_string(tray), "MediaType", "Envelope");
}

// --- The models -------------------------------------------------------------

Model model4000()
{
    using enum MediaClass;
    Model m{"Model 4000", "TLV4000.PPD", "1.0.0", "35", false, Encoding::Latin1, {}, {}, {}, {}, "A4", {}};
    m.installable = {"InstallableOptions",
                     "Installable Options",
                     {memory({256, 512}), optionalTrays(1),
                      fitted("OptionalDuplexer", "Duplex Unit", kDuplexerOid, true, "1", "0")}};
    m.groups = {{"General",
                 "General",
                 {inputSlot(2, false), mediaType(false), duplex(),
                  onOff("Collate", "Collate", "40 AnySetup", "Collate", "True")}},
                {"Quality",
                 "Print Quality",
                 {resolution(false), onOff("TonerSave", "Toner Save", "30 AnySetup", "TonerSave", "False")}}};
    m.media = mediaOf({Cassette, Envelope, Small}, {"FanFoldGermanLegal",
                                                    "A7",
                                                    "B6",
                                                    "DoublePostcardRotated",
                                                    "Env9",
                                                    "Env11",
                                                    "Env12",
                                                    "Env14",
                                                    "EnvPersonal",
                                                    "EnvC4",
                                                    "EnvC65",
                                                    "EnvChou3",
                                                    "EnvChou4",
                                                    "EnvKaku2",
                                                    "EnvYou4",
                                                    "EnvInvite",
                                                    "EnvItalian",
                                                    "EnvPRC1",
                                                    "EnvPRC2",
                                                    "EnvPRC4",
                                                    "EnvPRC7",
                                                    "EnvPRC8",
                                                    "EnvISOB6"});
    return m;
}

Model model6500()
{
    using enum MediaClass;
    Model m{"Model 6500", "TLV6500.PPD", "1.0.0", "50", false, Encoding::Utf8, {"de", "fr"}, {}, {},
            {},           "A4",          {}};
    m.installable = {
        "InstallableOptions",
        "Installable Options",
        {memory({256, 512, 1024}), optionalTrays(2),
         fitted("OptionalDuplexer", "Duplex Unit", kDuplexerOid, true, "1", "0"),
         fitted("EnvelopeFeeder", "Envelope Feeder", kEnvelopeFeederOid, false, "present", "absent")}};
    m.groups = {{"General",
                 "General",
                 {inputSlot(3, true), mediaType(true), duplex(), outputBin(false),
                  onOff("Collate", "Collate", "40 AnySetup", "Collate", "True")}},
                {"Quality",
                 "Print Quality",
                 {resolution(false), onOff("TonerSave", "Toner Save", "30 AnySetup", "TonerSave", "False")}}};
    m.media = mediaOf({Cassette, Envelope, Small, Photo},
                      {"EnvPRC1", "EnvPRC2", "EnvPRC4", "EnvPRC7", "EnvPRC8", "EnvISOB6"});
    return m;
}

Model model8560()
{
    using enum MediaClass;
    Model m{
        "Model 8560", "TLV8560.PPD", "1.0.0", "45", true, Encoding::Utf8, {"de", "fr", "es", "it"}, {}, {},
        {},           "Letter",      {}};
    m.installable = {
        "InstallableOptions",
        "Installable Options",
        {memory({512, 1024, 2048}), optionalTrays(3),
         fitted("OptionalDuplexer", "Duplex Unit", kDuplexerOid, true, "1", "0"),
         fitted("HardDisk", "Hard Disk", kHardDiskOid, true, "1", "0"),
         fitted("EnvelopeFeeder", "Envelope Feeder", kEnvelopeFeederOid, false, "present", "absent")}};
    m.groups = {{"General",
                 "General",
                 {inputSlot(4, true), mediaType(true), duplex(), colorModel(), outputBin(false),
                  onOff("Collate", "Collate", "40 AnySetup", "Collate", "True")}},
                {"Quality",
                 "Print Quality",
                 {resolution(true), onOff("TonerSave", "Toner Save", "30 AnySetup", "TonerSave", "False")}}};
    m.media = mediaOf({Cassette, Large, Envelope, Small, Photo});
    return m;
}

Model model9300()
{
    using enum MediaClass;
    Model m{"Model 9300 MFP",
            "TLV9300.PPD",
            "1.0.0",
            "60",
            true,
            Encoding::Utf8,
            {"de", "fr", "es", "it", "nl", "pt"},
            {},
            {},
            {},
            "A4",
            {}};
    Option trays = optionalTrays(3);
    m.installable = {
        "InstallableOptions",
        "Installable Options",
        {memory({512, 1024, 2048}), trays,
         fitted("OptionalDuplexer", "Duplex Unit", kDuplexerOid, true, "1", "0"),
         fitted("HardDisk", "Hard Disk", kHardDiskOid, true, "1", "0"),
         fitted("EnvelopeFeeder", "Envelope Feeder", kEnvelopeFeederOid, false, "present", "absent"),
         finisher()}};
    m.groups = {{"General",
                 "General",
                 {inputSlot(4, true), mediaType(true), duplex(), colorModel(), outputBin(true),
                  onOff("Collate", "Collate", "40 AnySetup", "Collate", "True")}},
                {"Quality",
                 "Print Quality",
                 {resolution(true), onOff("TonerSave", "Toner Save", "30 AnySetup", "TonerSave", "False")}},
                {"Finishing", "Finishing", finishing()}};
    m.media = mediaOf({Cassette, Large, Envelope, Small, Photo, Banner});
    return m;
}

} // namespace

const std::vector<Model>& models()
{
    static const std::vector<Model> all = [] {
        std::vector<Model> list = {model4000(), model6500(), model8560(), model9300()};
        for (Model& m : list)
            addConstraints(m);
        return list;
    }();
    return all;
}

const Model* findModel(const std::string& name)
{
    for (const Model& m : models()) {
        if (m.name == name)
            return &m;
    }
    return nullptr;
}

} // namespace talvo::ppdgen
