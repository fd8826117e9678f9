<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name></name>
    <message id="PaneTitle">
        <source>PaneTitle</source>
        <translation>Add a Printer</translation>
    </message>
    <message id="Discovered Printers">
        <source>Discovered Printers</source>
        <translation>Printers found on your network and USB ports:</translation>
    </message>
    <message id="Advanced Search">
        <source>Advanced Search</source>
        <translation>Advanced Search…</translation>
    </message>
    <message id="Walkup Button Tooltip">
        <source>Walkup Button Tooltip</source>
        <translation>Walk up: add a printer from its own front panel</translation>
    </message>
    <message id="Discover Button Tooltip">
        <source>Discover Button Tooltip</source>
        <translation>Discovered: choose from the printers found on your network</translation>
    </message>
    <message id="Manual Button Tooltip">
        <source>Manual Button Tooltip</source>
        <translation>Manual: enter a printer's IP address or DNS name</translation>
    </message>
    <message id="SNMP">
        <source>SNMP</source>
        <translation>SNMP…</translation>
    </message>
    <message id="IP Address or DNS Name">
        <source>IP Address or DNS Name</source>
        <translation>IP Address or DNS Name:</translation>
    </message>
    <message id="Select Printer Model">
        <source>Select Printer Model</source>
        <translation>Printer model:</translation>
    </message>
    <message id="Location">
        <source>Location</source>
        <translation>Location</translation>
    </message>
    <message id="Contact">
        <source>Contact</source>
        <translation>Contact</translation>
    </message>
    <message id="Not Set">
        <source>Not Set</source>
        <translation>Not set</translation>
    </message>
    <message id="Save List">
        <source>Save List</source>
        <translation>Save List</translation>
    </message>
    <message id="Load List">
        <source>Load List</source>
        <translation>Load List</translation>
    </message>
    <message id="Creating Print Queue">
        <source>Creating Print Queue</source>
        <translation>Creating the print queue…</translation>
    </message>
    <message id="Queue Creation Failed">
        <source>Queue Creation Failed</source>
        <translation>The Print Queue Could Not Be Created</translation>
    </message>
    <message id="Print Queue Created">
        <source>Print Queue Created</source>
        <translation>Print Queue Created</translation>
    </message>
    <message id="CreatedPrintQueue">
        <source>CreatedPrintQueue</source>
        <translation>The print queue %1 was created for the %2.
Device URI: %3</translation>
    </message>
    <message id="LpAdminErrorMessage">
        <source>LpAdminErrorMessage</source>
        <translation>The printing system could not create the print queue.</translation>
    </message>
    <message id="LpAdminUnknownError">
        <source>LpAdminUnknownError</source>
        <translation>lpadmin failed without giving a reason.</translation>
    </message>
    <message id="PPDNotFoundErrorMessage">
        <source>PPDNotFoundErrorMessage</source>
        <translation>The printer description (PPD) file for this printer model could not be found.</translation>
    </message>
    <message id="NoQueueAlertTitle">
        <source>NoQueueAlertTitle</source>
        <translation>No Printer Selected</translation>
    </message>
    <message id="NoQueueAlertText">
        <source>NoQueueAlertText</source>
        <translation>No print queue will be created because no printer is selected. Choose Select Printer to pick one, or Continue to go on without a print queue.</translation>
    </message>
    <message id="Select Printer">
        <source>Select Printer</source>
        <translation>Select Printer</translation>
    </message>
    <message id="Continue">
        <source>Continue</source>
        <translation>Continue</translation>
    </message>
    <message id="CheckingAddress">
        <source>CheckingAddress</source>
        <translation>Checking %1…</translation>
    </message>
    <message id="InvalidAddress">
        <source>InvalidAddress</source>
        <translation>This is not a valid IP address or DNS name.</translation>
    </message>
    <message id="No Device">
        <source>No Device</source>
        <translation>Nothing answers at %1. If the printer is switched off or asleep, choose its model below.</translation>
    </message>
    <message id="No Printer">
        <source>No Printer</source>
        <translation>The device at %1 does not seem to be a printer. If you are sure it is one, choose its model below.</translation>
    </message>
    <message id="Unknown Printer">
        <source>Unknown Printer</source>
        <translation>A printer answers at %1, but its model could not be identified. Please choose its model below.</translation>
    </message>
    <message id="Unsupported Printer">
        <source>Unsupported Printer</source>
        <translation>The %1 at %2 is not a supported model. To use it anyway, choose the closest supported model below.</translation>
    </message>
    <message id="Select a printer model…">
        <source>Select a printer model…</source>
        <translation>Select a printer model…</translation>
    </message>
    <message id="Advanced Sheet Info Label">
        <source>Advanced Sheet Info Label</source>
        <translation>Printers on other subnets are not found automatically. Search a remote subnet, or look for a single printer by its address.</translation>
    </message>
    <message id="Gateway Info Label">
        <source>Gateway Info Label</source>
        <translation>Search a subnet, given by its network address and subnet mask:</translation>
    </message>
    <message id="Gateway Label">
        <source>Gateway Label</source>
        <translation>Network address:</translation>
    </message>
    <message id="IP Address Info Label">
        <source>IP Address Info Label</source>
        <translation>Search for a single printer at this IP address:</translation>
    </message>
    <message id="IP Address Label">
        <source>IP Address Label</source>
        <translation>IP address:</translation>
    </message>
    <message id="Subnet Label">
        <source>Subnet Label</source>
        <translation>Subnet mask:</translation>
    </message>
    <message id="AdvancedAddressInvalid">
        <source>AdvancedAddressInvalid</source>
        <translation>Type four numbers from 0 to 255 separated by dots, like 192.168.1.20.</translation>
    </message>
    <message id="Search Button Title">
        <source>Search Button Title</source>
        <translation>Search</translation>
    </message>
    <message id="Cancel Button Title">
        <source>Cancel Button Title</source>
        <translation>Cancel</translation>
    </message>
    <message id="Advanced Sheet Title">
        <source>Advanced Sheet Title</source>
        <translation>Advanced Search</translation>
    </message>
    <message id="SNMP Get Community Label">
        <source>SNMP Get Community Label</source>
        <translation>Read (get) community:</translation>
    </message>
    <message id="SNMP Set Community Label">
        <source>SNMP Set Community Label</source>
        <translation>Write (set) community:</translation>
    </message>
    <message id="OK">
        <source>OK</source>
        <translation>OK</translation>
    </message>
    <message id="SNMP Sheet Title">
        <source>SNMP Sheet Title</source>
        <translation>SNMP Community Strings</translation>
    </message>
    <message id="WizardTitle">
        <source>WizardTitle</source>
        <translation>Talvo Printer Setup</translation>
    </message>
    <message id="WelcomeTitle">
        <source>WelcomeTitle</source>
        <translation>Welcome</translation>
    </message>
    <message id="WelcomeText">
        <source>WelcomeText</source>
        <translation>This assistant finds your Talvo printer and creates a print queue for it, so that you can print from this computer. Make sure the printer is switched on and connected to your network or to this computer's USB port.</translation>
    </message>
    <message id="ClosingTitle">
        <source>ClosingTitle</source>
        <translation>Setup Complete</translation>
    </message>
    <message id="ClosingText">
        <source>ClosingText</source>
        <translation>Your printer is ready to use. You can print a test page to check that everything works.</translation>
    </message>
    <message id="ClosingNoQueueText">
        <source>ClosingNoQueueText</source>
        <translation>No print queue was created. You can run this assistant again at any time to add a printer.</translation>
    </message>
    <message id="Queue Name">
        <source>Queue Name</source>
        <translation>Queue name:</translation>
    </message>
    <message id="Printer Model">
        <source>Printer Model</source>
        <translation>Printer model:</translation>
    </message>
    <message id="Device URI">
        <source>Device URI</source>
        <translation>Device URI:</translation>
    </message>
    <message id="Print Test Page">
        <source>Print Test Page</source>
        <translation>Print Test Page</translation>
    </message>
    <message id="TestPageSent">
        <source>TestPageSent</source>
        <translation>A test page was sent to %1.</translation>
    </message>
    <message id="TestPageFailed">
        <source>TestPageFailed</source>
        <translation>The test page could not be printed: %1</translation>
    </message>
    <message id="Save List Failed">
        <source>Save List Failed</source>
        <translation>Save List Failed</translation>
    </message>
    <message id="Preferences Not Saved">
        <source>Preferences Not Saved</source>
        <translation>Preferences Not Saved</translation>
    </message>
    <message id="WaitTitle">
        <source>WaitTitle</source>
        <translation>Please Wait</translation>
    </message>
    <message id="WaitText">
        <source>WaitText</source>
        <translation>The print queue is being created. The window can be closed when it is done.</translation>
    </message>
    <message id="Walkup Mode">
        <source>Walkup Mode</source>
        <translation>Walk up</translation>
    </message>
    <message id="Discovered Mode">
        <source>Discovered Mode</source>
        <translation>Discovered</translation>
    </message>
    <message id="Manual Mode">
        <source>Manual Mode</source>
        <translation>Manual</translation>
    </message>
    <message id="Walkup Instructions">
        <source>Walkup Instructions</source>
        <translation>Walkup instructions</translation>
    </message>
    <message id="Searching For Printers">
        <source>Searching For Printers</source>
        <translation>Searching for printers</translation>
    </message>
    <message id="Checking The Address">
        <source>Checking The Address</source>
        <translation>Checking the address</translation>
    </message>
</context>
</TS>
