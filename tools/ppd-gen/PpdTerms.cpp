// The translations of every text the Talvo PPDs show, for the languages of
// *cupsLanguages: cupstestppd fails a PPD that lacks any of them.

#include "PpdModel.h"

#include <array>
#include <map>
#include <stdexcept>

namespace talvo::ppdgen {
namespace {

constexpr std::array<const char*, 6> kLanguages = {"de", "fr", "es", "it", "nl", "pt"};
using Texts = std::array<const char*, kLanguages.size()>;

const std::map<std::string, Texts>& terms()
{
    static const std::map<std::string, Texts> table = {
        // Groups
        {"Installable Options",
         {"Installierbare Optionen", "Options installables", "Opciones instalables", "Opzioni installabili",
          "Installeerbare opties", "Opções instaláveis"}},
        {"General", {"Allgemein", "Général", "General", "Generale", "Algemeen", "Geral"}},
        {"Finishing", {"Endverarbeitung", "Finition", "Acabado", "Finitura", "Afwerking", "Acabamento"}},
        {"Print Quality",
         {"Druckqualität", "Qualité d'impression", "Calidad de impresión", "Qualità di stampa",
          "Afdrukkwaliteit", "Qualidade de impressão"}},
        // Installable options
        {"Installed Memory",
         {"Installierter Speicher", "Mémoire installée", "Memoria instalada", "Memoria installata",
          "Geïnstalleerd geheugen", "Memória instalada"}},
        {"Optional Paper Trays",
         {"Optionale Papierfächer", "Bacs papier optionnels", "Bandejas de papel opcionales",
          "Cassetti carta opzionali", "Optionele papierladen", "Bandejas de papel opcionais"}},
        {"Duplex Unit",
         {"Duplexeinheit", "Module recto verso", "Unidad de dúplex", "Unità fronte-retro", "Duplexeenheid",
          "Unidade duplex"}},
        {"Hard Disk",
         {"Festplatte", "Disque dur", "Disco duro", "Disco rigido", "Vaste schijf", "Disco rígido"}},
        {"Envelope Feeder",
         {"Umschlagzuführung", "Chargeur d'enveloppes", "Alimentador de sobres", "Alimentatore buste",
          "Enveloppeninvoer", "Alimentador de envelopes"}},
        {"Finisher",
         {"Finisher", "Module de finition", "Finalizador", "Finisher", "Afwerkeenheid", "Finalizador"}},
        {"Installed", {"Installiert", "Installé", "Instalado", "Installato", "Geïnstalleerd", "Instalado"}},
        {"Not Installed",
         {"Nicht installiert", "Non installé", "No instalado", "Non installato", "Niet geïnstalleerd",
          "Não instalado"}},
        {"256 MB", {"256 MB", "256 Mo", "256 MB", "256 MB", "256 MB", "256 MB"}},
        {"512 MB", {"512 MB", "512 Mo", "512 MB", "512 MB", "512 MB", "512 MB"}},
        {"1 GB", {"1 GB", "1 Go", "1 GB", "1 GB", "1 GB", "1 GB"}},
        {"2 GB", {"2 GB", "2 Go", "2 GB", "2 GB", "2 GB", "2 GB"}},
        {"1 Tray (Tray 3)",
         {"1 Fach (Fach 3)", "1 bac (bac 3)", "1 bandeja (bandeja 3)", "1 cassetto (cassetto 3)",
          "1 lade (lade 3)", "1 bandeja (bandeja 3)"}},
        {"2 Trays (Trays 3-4)",
         {"2 Fächer (Fächer 3-4)", "2 bacs (bacs 3-4)", "2 bandejas (bandejas 3-4)",
          "2 cassetti (cassetti 3-4)", "2 laden (laden 3-4)", "2 bandejas (bandejas 3-4)"}},
        {"3 Trays (Trays 3-5)",
         {"3 Fächer (Fächer 3-5)", "3 bacs (bacs 3-5)", "3 bandejas (bandejas 3-5)",
          "3 cassetti (cassetti 3-5)", "3 laden (laden 3-5)", "3 bandejas (bandejas 3-5)"}},
        {"Stapler", {"Hefter", "Agrafeuse", "Grapadora", "Pinzatrice", "Nietmachine", "Grampeador"}},
        {"Booklet Maker",
         {"Broschürenfinisher", "Module livret", "Creador de folletos", "Unità libretto", "Boekjesmaker",
          "Criador de livretos"}},
        // General options
        {"Page Size",
         {"Papierformat", "Format du papier", "Tamaño del papel", "Formato carta", "Papierformaat",
          "Tamanho do papel"}},
        {"Page Region",
         {"Seitenbereich", "Zone de page", "Región de página", "Area pagina", "Paginagebied",
          "Região da página"}},
        {"Paper Source",
         {"Papierquelle", "Source du papier", "Origen del papel", "Origine carta", "Papierbron",
          "Origem do papel"}},
        {"Media Type",
         {"Medientyp", "Type de support", "Tipo de soporte", "Tipo di supporto", "Mediatype",
          "Tipo de mídia"}},
        {"Two-Sided",
         {"Beidseitig", "Recto verso", "Doble cara", "Fronte-retro", "Dubbelzijdig", "Frente e verso"}},
        {"Resolution", {"Auflösung", "Résolution", "Resolución", "Risoluzione", "Resolutie", "Resolução"}},
        {"Color Mode",
         {"Farbmodus", "Mode couleur", "Modo de color", "Modalità colore", "Kleurmodus", "Modo de cor"}},
        {"Output Bin",
         {"Ausgabefach", "Bac de sortie", "Bandeja de salida", "Vassoio di uscita", "Uitvoerlade",
          "Bandeja de saída"}},
        {"Collate", {"Sortieren", "Assembler", "Intercalar", "Fascicola", "Sorteren", "Agrupar"}},
        {"Toner Save",
         {"Tonersparmodus", "Économie de toner", "Ahorro de tóner", "Risparmio toner", "Tonerbesparing",
          "Economia de toner"}},
        {"Automatic",
         {"Automatisch", "Automatique", "Automático", "Automatico", "Automatisch", "Automático"}},
        {"Tray 1 (Multipurpose)",
         {"Fach 1 (Mehrzweck)", "Bac 1 (multifonction)", "Bandeja 1 (multiuso)", "Cassetto 1 (multiuso)",
          "Lade 1 (multifunctioneel)", "Bandeja 1 (multiuso)"}},
        {"Manual Feed",
         {"Manuelle Zufuhr", "Alimentation manuelle", "Alimentación manual", "Alimentazione manuale",
          "Handmatige invoer", "Alimentação manual"}},
        {"On", {"Ein", "Activé", "Activado", "Attivato", "Aan", "Ativado"}},
        {"Off", {"Aus", "Désactivé", "Desactivado", "Disattivato", "Uit", "Desativado"}},
        {"Long-Edge Binding",
         {"Bindung an der langen Kante", "Reliure bord long", "Encuadernación borde largo",
          "Rilegatura lato lungo", "Binden aan lange zijde", "Encadernação borda longa"}},
        {"Short-Edge Binding",
         {"Bindung an der kurzen Kante", "Reliure bord court", "Encuadernación borde corto",
          "Rilegatura lato corto", "Binden aan korte zijde", "Encadernação borda curta"}},
        {"Color", {"Farbe", "Couleur", "Color", "Colore", "Kleur", "Cor"}},
        {"Grayscale",
         {"Graustufen", "Niveaux de gris", "Escala de grises", "Scala di grigi", "Grijstinten",
          "Escala de cinza"}},
        {"Standard Output Bin",
         {"Standardausgabefach", "Bac de sortie standard", "Bandeja de salida estándar",
          "Vassoio di uscita standard", "Standaarduitvoerlade", "Bandeja de saída padrão"}},
        {"Face-Up Tray",
         {"Ausgabefach Schriftseite oben", "Bac face vers le haut", "Bandeja boca arriba",
          "Vassoio a faccia in su", "Lade met bedrukte zijde boven", "Bandeja face para cima"}},
        {"Finisher Bin",
         {"Finisher-Fach", "Bac du module de finition", "Bandeja del finalizador", "Vassoio finisher",
          "Afwerklade", "Bandeja do finalizador"}},
        // Media types
        {"Plain Paper",
         {"Normalpapier", "Papier ordinaire", "Papel normal", "Carta comune", "Normaal papier",
          "Papel comum"}},
        {"Thin Paper",
         {"Dünnes Papier", "Papier fin", "Papel fino", "Carta sottile", "Dun papier", "Papel fino"}},
        {"Thick Paper",
         {"Dickes Papier", "Papier épais", "Papel grueso", "Carta spessa", "Dik papier", "Papel grosso"}},
        {"Extra Thick Paper",
         {"Extra dickes Papier", "Papier très épais", "Papel extra grueso", "Carta extra spessa",
          "Extra dik papier", "Papel extra grosso"}},
        {"Recycled Paper",
         {"Recyclingpapier", "Papier recyclé", "Papel reciclado", "Carta riciclata", "Kringlooppapier",
          "Papel reciclado"}},
        {"Letterhead",
         {"Briefkopfpapier", "Papier à en-tête", "Papel con membrete", "Carta intestata", "Briefpapier",
          "Papel timbrado"}},
        {"Preprinted Paper",
         {"Vorgedrucktes Papier", "Papier préimprimé", "Papel preimpreso", "Carta prestampata",
          "Voorgedrukt papier", "Papel pré-impresso"}},
        {"Prepunched Paper",
         {"Vorgelochtes Papier", "Papier perforé", "Papel perforado", "Carta perforata",
          "Geperforeerd papier", "Papel perfurado"}},
        {"Colored Paper",
         {"Farbiges Papier", "Papier couleur", "Papel de color", "Carta colorata", "Gekleurd papier",
          "Papel colorido"}},
        {"Bond Paper", {"Bondpapier", "Papier bond", "Papel bond", "Carta bond", "Bondpapier", "Papel bond"}},
        {"Labels", {"Etiketten", "Étiquettes", "Etiquetas", "Etichette", "Etiketten", "Etiquetas"}},
        {"Transparency", {"Folie", "Transparent", "Transparencia", "Lucido", "Transparant", "Transparência"}},
        {"Envelope", {"Umschlag", "Enveloppe", "Sobre", "Busta", "Envelop", "Envelope"}},
        {"Card Stock", {"Karton", "Carte", "Cartulina", "Cartoncino", "Karton", "Cartolina"}},
        {"Glossy Paper",
         {"Glanzpapier", "Papier glacé", "Papel satinado", "Carta patinata", "Glanzend papier",
          "Papel brilhante"}},
        {"Postcard", {"Postkarte", "Carte postale", "Postal", "Cartolina", "Briefkaart", "Postal"}},
        // Finishing
        {"Staple", {"Heften", "Agrafage", "Grapado", "Pinzatura", "Nieten", "Grampear"}},
        {"None", {"Keine", "Aucun", "Ninguno", "Nessuno", "Geen", "Nenhum"}},
        {"Top Left",
         {"Oben links", "En haut à gauche", "Arriba a la izquierda", "In alto a sinistra", "Linksboven",
          "Superior esquerdo"}},
        {"Top Right",
         {"Oben rechts", "En haut à droite", "Arriba a la derecha", "In alto a destra", "Rechtsboven",
          "Superior direito"}},
        {"Two on Left",
         {"Zwei links", "Deux à gauche", "Dos a la izquierda", "Due a sinistra", "Twee links",
          "Dois à esquerda"}},
        {"Two on Top",
         {"Zwei oben", "Deux en haut", "Dos arriba", "Due in alto", "Twee boven", "Dois em cima"}},
        {"Saddle Stitch",
         {"Rückstichheftung", "Piqûre à cheval", "Grapado en caballete", "Pinzatura a sella", "Zadelsteek",
          "Grampo a cavalo"}},
        {"Hole Punch", {"Lochen", "Perforation", "Perforación", "Foratura", "Perforeren", "Perfuração"}},
        {"2 Holes", {"2 Löcher", "2 trous", "2 agujeros", "2 fori", "2 gaten", "2 furos"}},
        {"3 Holes", {"3 Löcher", "3 trous", "3 agujeros", "3 fori", "3 gaten", "3 furos"}},
        {"4 Holes", {"4 Löcher", "4 trous", "4 agujeros", "4 fori", "4 gaten", "4 furos"}},
        // Page sizes with words in them
        {"US Letter", {"US Letter", "Lettre US", "Carta EE. UU.", "Lettera USA", "US Letter", "Carta EUA"}},
        {"US Legal", {"US Legal", "Légal US", "Legal EE. UU.", "Legale USA", "US Legal", "Ofício EUA"}},
        {"Executive", {"Executive", "Exécutif", "Ejecutivo", "Executive", "Executive", "Executivo"}},
        {"Statement", {"Statement", "Relevé", "Media carta", "Statement", "Statement", "Declaração"}},
        {"Tabloid", {"Tabloid", "Tabloïd", "Tabloide", "Tabloid", "Tabloid", "Tabloide"}},
        {"Double Postcard",
         {"Doppelpostkarte", "Carte postale double", "Postal doble", "Cartolina doppia", "Dubbele briefkaart",
          "Postal dupla"}},
    };
    return table;
}

// Texts made of a word and a number or a size: the word is translated.
const std::vector<std::pair<std::string, Texts>>& prefixes()
{
    static const std::vector<std::pair<std::string, Texts>> table = {
        {"Tray ", {"Fach ", "Bac ", "Bandeja ", "Cassetto ", "Lade ", "Bandeja "}},
        {"Envelope ", {"Umschlag ", "Enveloppe ", "Sobre ", "Busta ", "Envelop ", "Envelope "}},
        {"Index Card ", {"Karteikarte ", "Fiche ", "Ficha ", "Scheda ", "Systeemkaart ", "Ficha "}},
        {"Photo ", {"Foto ", "Photo ", "Foto ", "Foto ", "Foto ", "Foto "}},
        {"Banner ", {"Banner ", "Bannière ", "Pancarta ", "Striscione ", "Banier ", "Faixa "}},
        {"Fanfold ",
         {"Endlospapier ", "Papier continu ", "Papel continuo ", "Modulo continuo ", "Kettingpapier ",
          "Formulário contínuo "}},
    };
    return table;
}

// Texts that read the same in every language.
bool neutral(const std::string& text)
{
    static const char* const kNeutral[] = {"600 dpi", "1200 dpi", "2400 dpi"};
    for (const char* n : kNeutral) {
        if (text == n)
            return true;
    }
    // Size names such as "A4" or "B5 (JIS)".
    return text.find_first_of("abcdefghijklmnopqrstuvwxyz") == std::string::npos;
}

} // namespace

std::string translate(const std::string& text, const std::string& language)
{
    std::size_t index = 0;
    while (index < kLanguages.size() && language != kLanguages[index])
        ++index;
    if (index == kLanguages.size())
        throw std::runtime_error("no translations for the language " + language);
    if (const auto found = terms().find(text); found != terms().end())
        return found->second[index];
    for (const auto& [prefix, texts] : prefixes()) {
        if (text.compare(0, prefix.size(), prefix) == 0)
            return texts[index] + text.substr(prefix.size());
    }
    if (neutral(text))
        return text;
    throw std::runtime_error("no " + language + " translation of \"" + text + "\"");
}

} // namespace talvo::ppdgen
