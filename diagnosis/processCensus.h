#pragma once

#include "support/fixedText.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace obrin {

struct ProcessResourceInformation;

/// The records of a record's children: `size` pointers into a table that all records of one call of
/// calculatepenultimatechildren share and own together. The records themselves belong to the census and must
/// not move while this is in use: sorting a census makes its families meaningless.
struct ChildRecords {
    std::shared_ptr<ProcessResourceInformation*[]> first;
    std::int32_t size = 0;

    ProcessResourceInformation** begin() const { return first.get(); }
    ProcessResourceInformation** end() const { return first.get() + size; }
};

/// What the census knows of one process, the record known as _PROCESS_RESOURCE_INFORMATION (a name that C++
/// keeps for itself). A fresh record is all zero.
struct ProcessResourceInformation {
    FixedText<256> name; ///< command name, cut at the first blank or ")"; empty for a name that begins so
    /// -1 marks a process that was gone before its stat file could be read; it is in no report.
    std::int32_t pid = 0;
    std::int32_t ppid = 0;
    std::int32_t numFDs =
        0; ///< entries of the descriptor directory: "." and ".." count, so open ones plus two
    std::int32_t vmsize = 0; ///< MB, truncated; of a process without such a figure the previous process's
    std::int32_t vmrss = 0;  ///< MB resident, truncated; inherited like vmsize
    std::int32_t swap = 0;   ///< MB of size that is not resident, truncated; inherited like vmsize
    ProcessResourceInformation* parent = nullptr; ///< set by calculatepenultimatechildren
    ChildRecords children;                        ///< set by calculatepenultimatechildren
    std::int32_t immediatechildren = 0;
    std::int32_t numchildren = 0; ///< all descendants
};

/// The memory figures of the process read last, in kB. They pass from process to process: one that tells none
/// (a kernel thread, say) inherits its predecessor's.
struct RunningMemory {
    std::int64_t VmSize = 0;
    std::int64_t VmRSS = 0;
};

/// Every process of the machine, in the order of the process directory.
struct Census {
    std::vector<ProcessResourceInformation> records; ///< only records that were filled
    std::int64_t totalNumFDs = 0;                    ///< sum of numFDs
};

/// Reads pid and name of a stat text; false, with the record as it was, when no pid stands in it. Any bytes
/// may be in the name.
bool readStatText(std::string_view text, ProcessResourceInformation* record);

/// The parent in a stat text; nothing when the text ends before it.
std::optional<std::int32_t> parentInStatText(std::string_view text);

/// Reads the parent of a status text into the record and the memory figures into `memory`; what is missing
/// leaves the old value. The first word is never looked at, the words of the process's own name are.
void readStatusText(std::string_view text, ProcessResourceInformation* record, RunningMemory* memory);

/// Reads a statm text into `memory`, in pages; false when it holds no two numbers. A process without memory
/// of its own has zeros there and leaves the old values.
bool readStatmText(std::string_view text, RunningMemory* memory);

/// The entries under systemPaths().proc that stand for processes; nothing, with errno, when it cannot be
/// opened.
std::optional<std::vector<std::string>> listProcesses();

/// Records of the listed processes (what has started since is left out); nothing, with errno, when the
/// process directory cannot be opened. A process that vanishes meanwhile keeps the record with pid -1 or with
/// inherited figures, depending on how far it was read. Never moves the process's working directory. Throws
/// std::bad_alloc only for the census as a whole; any exception of a single process is logged and costs that
/// process alone.
std::optional<Census> takeCensus(const std::vector<std::string>& processes);

// Order two records descending by one measure: -1 when the first record's is larger, 1 when smaller, 0 when
// equal.
int comparevmsize(const ProcessResourceInformation& first, const ProcessResourceInformation& second);
int comparevmrss(const ProcessResourceInformation& first, const ProcessResourceInformation& second);
int comparenumFDs(const ProcessResourceInformation& first, const ProcessResourceInformation& second);
int compareswap(const ProcessResourceInformation& first, const ProcessResourceInformation& second);
int compareimmediatechildren(const ProcessResourceInformation& first,
                             const ProcessResourceInformation& second);
int comparenumchildren(const ProcessResourceInformation& first, const ProcessResourceInformation& second);

/// Adds to each record's immediatechildren the number of the n records (itself among them) whose ppid is its
/// pid. Linear in n.
void calculateimmediatechildren(std::int32_t n, ProcessResourceInformation* census);

/// calculateimmediatechildren; then logs each record's count, links parents and children, and sets
/// numchildren where it is still 0. Of several records with one pid the last is the parent, and each has the
/// children. Linear in n unless parents go in circles.
void calculatepenultimatechildren(std::int32_t n, ProcessResourceInformation* census);

/// Descendants of a record whose family is linked: its immediatechildren and those of everything below it,
/// each record counted once, so that a circle of parents ends.
std::int32_t calci(const ProcessResourceInformation& record);

/// Writes a line for each of the n records with pid >= 0 to the log.
void showtop(std::int32_t n, const ProcessResourceInformation* census);

} // namespace obrin
