// Writes a model's PPD in the layout the PPD format (version 4.3) and CUPS's
// localization conventions ask for, plus the vendor lines that tell the
// printer setup which SNMP object reports each installable option
// ("*?OIDKeyword") and which answer means which choice ("*OIDKeyword Choice").

#include "PpdModel.h"

#include <cmath>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace talvo::ppdgen {
namespace {

std::string number(double value)
{
    char text[32];
    if (std::floor(value) == value)
        std::snprintf(text, sizeof text, "%.0f", value);
    else
        std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

std::string pageSizeCode(const Media& m)
{
    return "<</PageSize[" + number(m.width) + " " + number(m.length) + "]/ImagingBBox null>>setpagedevice";
}

// PageSize and PageRegion: the same choices, one per size.
Option sizeOption(const Model& model, const std::string& keyword, const std::string& text)
{
    Option o{keyword, text, "PickOne", "20 AnySetup", model.defaultSize, {}, false, "", ""};
    for (const Media& m : model.media)
        o.choices.push_back({m.name, m.text, pageSizeCode(m), ""});
    return o;
}

void writeOption(std::ostream& out, const Option& o)
{
    out << "*OpenUI *" << o.keyword << '/' << o.text << ": " << o.type << '\n'
        << "*OrderDependency: " << o.order << " *" << o.keyword << '\n'
        << "*Default" << o.keyword << ": " << o.defaultChoice << '\n';
    for (const Choice& c : o.choices) {
        out << '*' << o.keyword << ' ' << c.keyword;
        if (!o.bareChoices)
            out << '/' << c.text;
        out << ": \"" << c.code << "\"\n";
    }
    if (!o.psQuery.empty())
        out << "*?" << o.keyword << ": \"" << o.psQuery << "\"\n";
    out << "*CloseUI: *" << o.keyword << '\n';
    if (o.oid.empty())
        return;
    out << "*?OID" << o.keyword << ": \"" << o.oid << "\"\n";
    for (const Choice& c : o.choices) {
        if (!c.answer.empty())
            out << "*OID" << o.keyword << ' ' << c.keyword << ": \"" << c.answer << "\"\n";
    }
}

void writeGroup(std::ostream& out, const Group& g, const std::vector<Option>& first = {})
{
    out << "\n*OpenGroup: " << g.keyword << '/' << g.text << '\n';
    for (const Option& o : first)
        writeOption(out, o);
    for (const Option& o : g.options)
        writeOption(out, o);
    out << "*CloseGroup: " << g.keyword << '\n';
}

void writeTranslations(std::ostream& out, const std::string& language, const Group& g,
                       const std::vector<Option>& first = {})
{
    out << '*' << language << ".Translation " << g.keyword << '/' << translate(g.text, language)
        << ": \"\"\n";
    for (const std::vector<Option>* options : {&first, &g.options}) {
        for (const Option& o : *options) {
            out << '*' << language << ".Translation " << o.keyword << '/' << translate(o.text, language)
                << ": \"\"\n";
            for (const Choice& c : o.choices)
                out << '*' << language << '.' << o.keyword << ' ' << c.keyword << '/'
                    << translate(c.text, language) << ": \"\"\n";
        }
    }
}

const char* const kFonts[] = {"AvantGarde-Book",
                              "AvantGarde-BookOblique",
                              "AvantGarde-Demi",
                              "AvantGarde-DemiOblique",
                              "Bookman-Demi",
                              "Bookman-DemiItalic",
                              "Bookman-Light",
                              "Bookman-LightItalic",
                              "Courier",
                              "Courier-Bold",
                              "Courier-BoldOblique",
                              "Courier-Oblique",
                              "Helvetica",
                              "Helvetica-Bold",
                              "Helvetica-BoldOblique",
                              "Helvetica-Narrow",
                              "Helvetica-Narrow-Bold",
                              "Helvetica-Narrow-BoldOblique",
                              "Helvetica-Narrow-Oblique",
                              "Helvetica-Oblique",
                              "NewCenturySchlbk-Bold",
                              "NewCenturySchlbk-BoldItalic",
                              "NewCenturySchlbk-Italic",
                              "NewCenturySchlbk-Roman",
                              "Palatino-Bold",
                              "Palatino-BoldItalic",
                              "Palatino-Italic",
                              "Palatino-Roman",
                              "Symbol",
                              "Times-Bold",
                              "Times-BoldItalic",
                              "Times-Italic",
                              "Times-Roman",
                              "ZapfChancery-MediumItalic",
                              "ZapfDingbats"};

std::string toLatin1(const std::string& utf8)
{
    std::string latin1;
    for (std::size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        if (byte < 0x80) {
            latin1 += static_cast<char>(byte);
        } else if ((byte == 0xC2 || byte == 0xC3) && i + 1 < utf8.size()) {
            const auto next = static_cast<unsigned char>(utf8[++i]);
            latin1 += static_cast<char>(((byte & 0x03) << 6) | (next & 0x3F));
        } else {
            throw std::runtime_error("a character outside ISO Latin 1 in a Latin 1 PPD");
        }
    }
    return latin1;
}

} // namespace

std::string writePpd(const Model& model)
{
    const std::string product = "Talvo " + model.name;
    std::ostringstream out;
    out << "*PPD-Adobe: \"4.3\"\n"
        << "*% " << product << " printer description\n"
        << "*% Copyright © 2024 Talvo. Written by talvo-ppd-gen from tools/ppd-gen: edit it there.\n"
        << "*FormatVersion: \"4.3\"\n"
        << "*FileVersion: \"" << model.fileVersion << "\"\n"
        << "*LanguageVersion: English\n"
        << "*LanguageEncoding: ISOLatin1\n"
        << "*PCFileName: \"" << model.pcFileName << "\"\n"
        << "*Product: \"(" << product << ")\"\n"
        << "*Manufacturer: \"Talvo\"\n"
        << "*ModelName: \"" << product << "\"\n"
        << "*ShortNickName: \"" << product << "\"\n"
        << "*NickName: \"" << product << ", " << model.fileVersion << "\"\n"
        << "*1284DeviceID: \"MFG:Talvo;MDL:" << model.name << ";CMD:POSTSCRIPT,PCL;CLS:PRINTER;\"\n"
        << "*PSVersion: \"(3010.000) 0\"\n"
        << "*LanguageLevel: \"3\"\n"
        << "*ColorDevice: " << (model.color ? "True" : "False") << '\n'
        << "*DefaultColorSpace: " << (model.color ? "CMYK" : "Gray") << '\n'
        << "*FileSystem: False\n"
        << "*Throughput: \"" << model.throughput << "\"\n"
        << "*LandscapeOrientation: Plus90\n"
        << "*TTRasterizer: Type42\n";
    if (!model.languages.empty()) {
        out << "*cupsLanguages: \"";
        for (std::size_t i = 0; i < model.languages.size(); ++i)
            out << (i ? " " : "") << model.languages[i];
        out << "\"\n";
    }

    // The printer setup changes only the defaults inside the group; these
    // lines keep the factory configuration on record.
    out << "\n*% Factory configuration of the installable options.\n";
    for (const Option& o : model.installable.options)
        out << "*Default" << o.keyword << ": " << o.defaultChoice << '\n';

    writeGroup(out, model.installable);
    const std::vector<Option> sizes = {sizeOption(model, "PageSize", "Page Size"),
                                       sizeOption(model, "PageRegion", "Page Region")};
    for (std::size_t i = 0; i < model.groups.size(); ++i)
        writeGroup(out, model.groups[i], i == 0 ? sizes : std::vector<Option>{});

    out << "\n*DefaultImageableArea: " << model.defaultSize << '\n';
    for (const Media& m : model.media)
        out << "*ImageableArea " << m.name << '/' << m.text << ": \"12 12 " << number(m.width - 12) << ' '
            << number(m.length - 12) << "\"\n";
    out << "*DefaultPaperDimension: " << model.defaultSize << '\n';
    for (const Media& m : model.media)
        out << "*PaperDimension " << m.name << '/' << m.text << ": \"" << number(m.width) << ' '
            << number(m.length) << "\"\n";

    out << "\n*% Combinations the printer cannot print.\n";
    for (const Constraint& c : model.constraints)
        out << "*UIConstraints: *" << c.option1 << ' ' << c.choice1 << " *" << c.option2 << ' ' << c.choice2
            << '\n';

    for (const std::string& language : model.languages) {
        out << "\n*% " << language << '\n';
        writeTranslations(out, language, model.installable);
        for (std::size_t i = 0; i < model.groups.size(); ++i)
            writeTranslations(out, language, model.groups[i], i == 0 ? sizes : std::vector<Option>{});
    }

    out << "\n*DefaultFont: Courier\n";
    for (const std::string font : kFonts) {
        const bool special = font == "Symbol" || font == "ZapfDingbats";
        out << "*Font " << font << ": " << (special ? "Special" : "Standard") << " \"(001.008S)\" "
            << (special ? "Special" : "Standard") << " ROM\n";
    }
    out << "*% End of " << product << '\n';
    return model.encoding == Encoding::Latin1 ? toLatin1(out.str()) : out.str();
}

} // namespace talvo::ppdgen
