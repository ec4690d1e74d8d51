#include "agent/agentConfig.h"

#include "acquisition/archiveFile.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/errorExit.h"
#include "support/textScanner.h"

namespace obrin {
namespace {

/// Hands the items out one after the other, with a trace line on each side, until one is missing.
class ItemReader {
    const ConfigurationItem& traced() {
        DEBUGMSG("\nObrinagent before fscanf() Argument=0x%08x\n", item_);
        DEBUGMSG("\nObrinagent after  fscanf() Argument=0x%08x\n", item_);
        return read_.items[item_++ - 1];
    }

public:
    ItemReader(std::string_view text, const std::string& path)
        : read_(readConfigurationText(text)), path_(path) {}

    /// False at the end of the text; the failure is then reported with `failure`, or only logged when that is
    /// null.
    bool text(std::string* item, const char* failure) {
        const ConfigurationItem& found = traced();
        if (found.missing)
            return ended(failure);
        item->assign(found.text);
        return true;
    }

    /// As text(); a word that is no number leaves `item` as it was and stays the next word.
    bool number(std::int32_t* item, const char* failure) { return read(item) || ended(failure); }

    /// An item that may be missing: 0 then.
    void optionalNumber(int* item, const char* name) {
        if (read(item))
            return;
        *item = 0;
        DEBUGMSG("\n\nEOF has been prematurely reached in file %s reading %s.\n\n", path_.c_str(), name);
    }

private:
    bool read(std::int32_t* item) {
        const ConfigurationItem& found = traced();
        if (found.number)
            *item = clampToInt32(*found.number);
        return !found.missing;
    }

    bool ended(const char* failure) {
        DEBUGMSG("\n\nEOF has been prematurely reached in file %s.\n\n", path_.c_str());
        if (failure != nullptr)
            error_exit("fatal", failure);
        return false;
    }

    const ConfigurationText read_;
    const std::string& path_;
    unsigned item_ = 1;
};

bool readHomeDirectory(ItemReader& items, Clasp* clasp) {
    if (!items.text(&clasp->DataHomeDirectory, "Premature EOF Trying To Read Data Home Directory"))
        return false;
    smart_mkdir(clasp->DataHomeDirectory);
    DEBUGMSG("Data will be stored in directory %s\n", clasp->DataHomeDirectory.c_str());
    return true;
}

bool readArchiveName(ItemReader& items, Clasp* clasp) {
    std::string name;
    if (!items.text(&name, "Premature EOF Trying To Read Data File Name"))
        return false;
    clasp->HardDriveArchive = clasp->DataHomeDirectory + name;
    DEBUGMSG("Archive data will be stored in file %s\n", clasp->HardDriveArchive.c_str());
    return true;
}

} // namespace

ConfigurationText readConfigurationText(std::string_view text) {
    ConfigurationText read;
    TextScanner scanner(text);
    for (std::size_t i = 0; i < read.items.size(); ++i) {
        ConfigurationItem& item = read.items[i];
        scanner.skipWhiteSpace();
        item.at = scanner.position();
        item.missing = scanner.atEnd();
        if (i < ConfigurationText::names)
            scanner.word();
        else
            item.number = scanner.integer();
        item.text = text.substr(item.at, scanner.position() - item.at);
    }
    read.end = scanner.position();
    return read;
}

bool readConfiguration(std::string_view text, const std::string& path, Clasp* clasp, int* maxfilesizeinMB) {
    clasp->IniFile = path;
    ItemReader items(text, path);
    if (!readHomeDirectory(items, clasp) || !readArchiveName(items, clasp) ||
        !items.text(&clasp->ScratchPad, "Premature EOF Trying To Read Scratchpad File Name") ||
        !items.text(&clasp->AnalysisLog, nullptr) ||
        !items.text(&clasp->ResourceText, "Premature EOF Trying To Read Resource File Name") ||
        !items.number(&clasp->MillisecondsPerSample,
                      "Premature EOF Trying To Read Milliseconds Per Sample Parameter") ||
        !items.number(&clasp->MinForecastHours, "Premature EOF Trying To Read MinForecastHours Parameter") ||
        !items.number(&clasp->MaxForecastHours, "Premature EOF Trying To Read MaxForecastHours Parameter") ||
        !items.number(maxfilesizeinMB, "Premature EOF Trying To Read maxfilesizeinMB Parameter"))
        return false;
    items.optionalNumber(&enablepooltaggingflag, "enablepooltaggingflag");
    items.optionalNumber(&grace_period, "grace_period");
    DEBUGMSG("enablepooltaggingflag = %d\n", enablepooltaggingflag);
    DEBUGMSG("Grace period = %d hours\n", grace_period);
    return true;
}

} // namespace obrin
