<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="de">
<context>
    <name></name>
    <message id="PaneTitle">
        <source>PaneTitle</source>
        <translation>Drucker hinzufügen</translation>
    </message>
    <message id="Discovered Printers">
        <source>Discovered Printers</source>
        <translation>Im Netzwerk und an USB-Anschlüssen gefundene Drucker:</translation>
    </message>
    <message id="Advanced Search">
        <source>Advanced Search</source>
        <translation>Erweiterte Suche…</translation>
    </message>
    <message id="Walkup Button Tooltip">
        <source>Walkup Button Tooltip</source>
        <translation>Walkup: Drucker über sein eigenes Bedienfeld hinzufügen</translation>
    </message>
    <message id="Discover Button Tooltip">
        <source>Discover Button Tooltip</source>
        <translation>Gefunden: einen der im Netzwerk gefundenen Drucker wählen</translation>
    </message>
    <message id="Manual Button Tooltip">
        <source>Manual Button Tooltip</source>
        <translation>Manuell: IP-Adresse oder DNS-Namen eines Druckers eingeben</translation>
    </message>
    <message id="SNMP">
        <source>SNMP</source>
        <translation>SNMP…</translation>
    </message>
    <message id="IP Address or DNS Name">
        <source>IP Address or DNS Name</source>
        <translation>IP-Adresse oder DNS-Name:</translation>
    </message>
    <message id="Select Printer Model">
        <source>Select Printer Model</source>
        <translation>Druckermodell:</translation>
    </message>
    <message id="Location">
        <source>Location</source>
        <translation>Standort</translation>
    </message>
    <message id="Contact">
        <source>Contact</source>
        <translation>Kontakt</translation>
    </message>
    <message id="Not Set">
        <source>Not Set</source>
        <translation>Nicht festgelegt</translation>
    </message>
    <message id="Save List">
        <source>Save List</source>
        <translation>Liste speichern</translation>
    </message>
    <message id="Load List">
        <source>Load List</source>
        <translation>Liste laden</translation>
    </message>
    <message id="Creating Print Queue">
        <source>Creating Print Queue</source>
        <translation>Die Druckwarteschlange wird erstellt…</translation>
    </message>
    <message id="Queue Creation Failed">
        <source>Queue Creation Failed</source>
        <translation>Die Druckwarteschlange konnte nicht erstellt werden</translation>
    </message>
    <message id="Print Queue Created">
        <source>Print Queue Created</source>
        <translation>Druckwarteschlange erstellt</translation>
    </message>
    <message id="CreatedPrintQueue">
        <source>CreatedPrintQueue</source>
        <translation>Die Druckwarteschlange %1 wurde für den Drucker %2 erstellt.
Geräte-URI: %3</translation>
    </message>
    <message id="LpAdminErrorMessage">
        <source>LpAdminErrorMessage</source>
        <translation>Das Drucksystem konnte die Druckwarteschlange nicht erstellen.</translation>
    </message>
    <message id="LpAdminUnknownError">
        <source>LpAdminUnknownError</source>
        <translation>lpadmin ist ohne Angabe von Gründen fehlgeschlagen.</translation>
    </message>
    <message id="PPDNotFoundErrorMessage">
        <source>PPDNotFoundErrorMessage</source>
        <translation>Die Druckerbeschreibungsdatei (PPD) für dieses Druckermodell wurde nicht gefunden.</translation>
    </message>
    <message id="NoQueueAlertTitle">
        <source>NoQueueAlertTitle</source>
        <translation>Kein Drucker ausgewählt</translation>
    </message>
    <message id="NoQueueAlertText">
        <source>NoQueueAlertText</source>
        <translation>Es wird keine Druckwarteschlange erstellt, weil kein Drucker ausgewählt ist. Wählen Sie „Drucker auswählen“, um einen Drucker auszuwählen, oder „Weiter“, um ohne Druckwarteschlange fortzufahren.</translation>
    </message>
    <message id="Select Printer">
        <source>Select Printer</source>
        <translation>Drucker auswählen</translation>
    </message>
    <message id="Continue">
        <source>Continue</source>
        <translation>Weiter</translation>
    </message>
    <message id="CheckingAddress">
        <source>CheckingAddress</source>
        <translation>%1 wird geprüft…</translation>
    </message>
    <message id="InvalidAddress">
        <source>InvalidAddress</source>
        <translation>Dies ist weder eine gültige IP-Adresse noch ein gültiger DNS-Name.</translation>
    </message>
    <message id="No Device">
        <source>No Device</source>
        <translation>Unter %1 antwortet kein Gerät. Wenn der Drucker ausgeschaltet ist oder sich im Ruhezustand befindet, wählen Sie unten sein Modell.</translation>
    </message>
    <message id="No Printer">
        <source>No Printer</source>
        <translation>Das Gerät unter %1 scheint kein Drucker zu sein. Wenn Sie sicher sind, dass es einer ist, wählen Sie unten sein Modell.</translation>
    </message>
    <message id="Unknown Printer">
        <source>Unknown Printer</source>
        <translation>Unter %1 antwortet ein Drucker, sein Modell wurde aber nicht erkannt. Bitte wählen Sie unten sein Modell.</translation>
    </message>
    <message id="Unsupported Printer">
        <source>Unsupported Printer</source>
        <translation>Das Modell %1 unter %2 wird nicht unterstützt. Um den Drucker trotzdem zu verwenden, wählen Sie unten das ähnlichste unterstützte Modell.</translation>
    </message>
    <message id="Select a printer model…">
        <source>Select a printer model…</source>
        <translation>Druckermodell auswählen…</translation>
    </message>
    <message id="Advanced Sheet Info Label">
        <source>Advanced Sheet Info Label</source>
        <translation>Drucker in anderen Subnetzen werden nicht automatisch gefunden. Suchen Sie hier in einem Subnetz oder unter einer Adresse.</translation>
    </message>
    <message id="Gateway Info Label">
        <source>Gateway Info Label</source>
        <translation>Ein entferntes Subnetz durchsuchen:</translation>
    </message>
    <message id="Gateway Label">
        <source>Gateway Label</source>
        <translation>Netzwerkadresse:</translation>
    </message>
    <message id="IP Address Info Label">
        <source>IP Address Info Label</source>
        <translation>Einen einzelnen Drucker unter dieser IP-Adresse suchen:</translation>
    </message>
    <message id="IP Address Label">
        <source>IP Address Label</source>
        <translation>IP-Adresse:</translation>
    </message>
    <message id="Subnet Label">
        <source>Subnet Label</source>
        <translation>Subnetzmaske:</translation>
    </message>
    <message id="AdvancedAddressInvalid">
        <source>AdvancedAddressInvalid</source>
        <translation>Geben Sie vier Zahlen von 0 bis 255 ein, getrennt durch Punkte, z. B. 192.168.1.20.</translation>
    </message>
    <message id="Search Button Title">
        <source>Search Button Title</source>
        <translation>Suchen</translation>
    </message>
    <message id="Cancel Button Title">
        <source>Cancel Button Title</source>
        <translation>Abbrechen</translation>
    </message>
    <message id="Advanced Sheet Title">
        <source>Advanced Sheet Title</source>
        <translation>Erweiterte Suche</translation>
    </message>
    <message id="SNMP Get Community Label">
        <source>SNMP Get Community Label</source>
        <translation>Community zum Lesen (get):</translation>
    </message>
    <message id="SNMP Set Community Label">
        <source>SNMP Set Community Label</source>
        <translation>Community zum Schreiben (set):</translation>
    </message>
    <message id="OK">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="SNMP Sheet Title">
        <source>SNMP Sheet Title</source>
        <translation>SNMP-Community-Strings</translation>
    </message>
    <message id="WizardTitle">
        <source>WizardTitle</source>
        <translation>Talvo-Druckereinrichtung</translation>
    </message>
    <message id="WelcomeTitle">
        <source>WelcomeTitle</source>
        <translation>Willkommen</translation>
    </message>
    <message id="WelcomeText">
        <source>WelcomeText</source>
        <translation>Dieser Assistent findet Ihren Talvo-Drucker und erstellt eine Druckwarteschlange für ihn, damit Sie von diesem Computer aus drucken können. Achten Sie darauf, dass der Drucker eingeschaltet und mit Ihrem Netzwerk oder mit einem USB-Anschluss dieses Computers verbunden ist.</translation>
    </message>
    <message id="ClosingTitle">
        <source>ClosingTitle</source>
        <translation>Einrichtung abgeschlossen</translation>
    </message>
    <message id="ClosingText">
        <source>ClosingText</source>
        <translation>Ihr Drucker ist bereit. Sie können eine Testseite drucken, um zu prüfen, ob alles funktioniert.</translation>
    </message>
    <message id="ClosingNoQueueText">
        <source>ClosingNoQueueText</source>
        <translation>Es wurde keine Druckwarteschlange erstellt. Sie können diesen Assistenten jederzeit erneut starten, um einen Drucker hinzuzufügen.</translation>
    </message>
    <message id="Queue Name">
        <source>Queue Name</source>
        <translation>Name der Warteschlange:</translation>
    </message>
    <message id="Printer Model">
        <source>Printer Model</source>
        <translation>Druckermodell:</translation>
    </message>
    <message id="Device URI">
        <source>Device URI</source>
        <translation>Geräte-URI:</translation>
    </message>
    <message id="Print Test Page">
        <source>Print Test Page</source>
        <translation>Testseite drucken</translation>
    </message>
    <message id="TestPageSent">
        <source>TestPageSent</source>
        <translation>Eine Testseite wurde an %1 gesendet.</translation>
    </message>
    <message id="TestPageFailed">
        <source>TestPageFailed</source>
        <translation>Die Testseite konnte nicht gedruckt werden: %1</translation>
    </message>
    <message id="Save List Failed">
        <source>Save List Failed</source>
        <translation>Liste nicht gespeichert</translation>
    </message>
    <message id="Preferences Not Saved">
        <source>Preferences Not Saved</source>
        <translation>Einstellungen nicht gespeichert</translation>
    </message>
    <message id="WaitTitle">
        <source>WaitTitle</source>
        <translation>Bitte warten</translation>
    </message>
    <message id="WaitText">
        <source>WaitText</source>
        <translation>Die Druckwarteschlange wird erstellt. Sie können das Fenster schließen, sobald sie fertig ist.</translation>
    </message>
    <message id="Walkup Mode">
        <source>Walkup Mode</source>
        <translation>Walkup</translation>
    </message>
    <message id="Discovered Mode">
        <source>Discovered Mode</source>
        <translation>Gefunden</translation>
    </message>
    <message id="Manual Mode">
        <source>Manual Mode</source>
        <translation>Manuell</translation>
    </message>
    <message id="Walkup Instructions">
        <source>Walkup Instructions</source>
        <translation>Walkup-Anleitung</translation>
    </message>
    <message id="Searching For Printers">
        <source>Searching For Printers</source>
        <translation>Drucker werden gesucht</translation>
    </message>
    <message id="Checking The Address">
        <source>Checking The Address</source>
        <translation>Adresse wird geprüft</translation>
    </message>
</context>
</TS>
