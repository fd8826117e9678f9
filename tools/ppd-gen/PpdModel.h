#pragma once

// The compact description of a model's PPD, from which talvo-ppd-gen writes
// the PPD file itself (PpdWriter.h). The four models live in PpdModels.cpp.
//
//     const talvo::ppdgen::Model* model = talvo::ppdgen::findModel("Model 4000");
//     std::string ppd = talvo::ppdgen::writePpd(*model);

#include <string>
#include <vector>

namespace talvo::ppdgen {

struct Choice
{
    std::string keyword;
    std::string text;   // the translation string; with Option::bareChoices only the localized lines carry it
    std::string code;   // PostScript, empty for installable options
    std::string answer; // the printer's SNMP answer that means this choice; empty: none
};

struct Option
{
    std::string keyword;
    std::string text;
    std::string type;  // PickOne or Boolean
    std::string order; // the OrderDependency value
    std::string defaultChoice;
    std::vector<Choice> choices;
    bool bareChoices = false; // choice lines without translation strings ("*Duplexer True: ...")
    std::string oid;          // installable options: the OID the printer reports the option under
    std::string psQuery;      // the standard PostScript query ("*?Memory"), if any
};

struct Group
{
    std::string keyword;
    std::string text;
    std::vector<Option> options;
};

// Which paper paths accept a size: the cassettes take cassette sizes (and the
// large ones on A3 models); the rest feed from the multipurpose tray.
enum class MediaClass { Cassette, Large, Envelope, Small, Photo, Banner };

struct Media
{
    std::string name; // the PPD size name (Adobe/PWG standard where one exists)
    std::string text;
    double width; // points
    double length;
    MediaClass kind;
};

struct Constraint
{
    std::string option1, choice1, option2, choice2;
};

enum class Encoding { Latin1, Utf8 };

struct Model
{
    std::string name; // the key in PluginSettings.plist's "SupportedPrinters"
    std::string pcFileName;
    std::string fileVersion;
    std::string throughput;
    bool color = false;
    Encoding encoding = Encoding::Utf8;
    std::vector<std::string> languages; // *cupsLanguages, each fully translated
    Group installable;                  // the InstallableOptions group
    std::vector<Group> groups;          // the other groups; PageSize and PageRegion come from `media`
    std::vector<Media> media;
    std::string defaultSize;
    std::vector<Constraint> constraints;
};

const std::vector<Model>& models();
const Model* findModel(const std::string& name);

// `text` in the language, "de" ... "pt"; the text itself for texts that are
// the same in every language (sizes such as A4, "600 dpi"). Throws
// std::runtime_error for a known language without the translation.
std::string translate(const std::string& text, const std::string& language);

// The whole PPD, encoded as the model says.
std::string writePpd(const Model& model);

} // namespace talvo::ppdgen
