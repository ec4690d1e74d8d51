#pragma once

#include "support/safeOpen.h"

#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

namespace obrin {

/// Largest text that readWholeFile takes; what the agent reads whole is a few kilobytes in practice.
inline constexpr std::size_t wholeFileLimit = std::size_t{64} << 20;

/// The bytes of a file of the system, read to its end or to `limit` bytes. A file that is empty, or that
/// opens but cannot be read (a directory, a FIFO nobody writes to), is an empty text; never waits for a
/// writer. Nothing, with errno, when the file cannot be opened. Any thread.
std::optional<std::string> readWholeFile(const std::string& path, std::size_t limit = wholeFileLimit);

/// The same of a file that the agent has written, as openOwn opens it, and of one that people write for the
/// agent, as openGiven does. A directory, a FIFO and a device are empty texts, whatever they hold.
std::optional<std::string> readOwnFile(const std::string& path);
std::optional<std::string> readGivenFile(const std::string& path);

/// Puts what an open file still gives into `text`, up to `limit` bytes; what cannot be read to its end ends
/// there. Any thread.
void readRest(const Descriptor& file, std::size_t limit, std::string* text);

/// Whether a file is on the disk, and not only on its way there, before it takes its name.
enum class Synchronise { yes, no };

/// Puts `content` in the place of the file: written into a side file, synchronised to the disk, and renamed
/// over it, so the name opens to the old or to the new text whole, also after a power cut. The old file's
/// permission bits are kept, but for those that let everybody write it, and its owner and group as far as the
/// agent may give them. False with errno on failure, and for what openOwn would not open; the old file is
/// then untouched and nothing is left beside it. Synchronising costs a millisecond and more: with
/// Synchronise::no, for files that are made anew all the time, the promise holds but for a power cut, which
/// may leave the file empty or torn.
bool replaceWholeFile(const std::string& path, std::string_view content,
                      Synchronise synchronise = Synchronise::yes);

/// The same for a file that people write: a symbolic link that openGiven follows stays one, and its target is
/// replaced. One that leads nowhere, for now perhaps, is a failure.
bool replaceGivenFile(const std::string& path, std::string_view content);

/// A file that is to take another's place once it is whole. It lies in the same directory under a name of its
/// own, which is nobody's: ".lumetra-" and 16 random hexadecimal digits.
struct SideFile {
    Descriptor file; ///< open for writing; an owner of nothing, with errno, when it could not be made
    std::string path;
};

/// Makes a side file for `target`, which need not exist, with these permission bits less the umask.
SideFile makeSideFile(const std::string& target, unsigned mode);

/// Gives a file the permission bits of `old`, but for those that let everybody write it, and its owner and
/// group as far as the agent may. False with errno when the permission bits cannot be set.
bool takeAttributes(int fd, const struct stat& old);

/// Removes the side files in the directory that `path` has in front of its last "/": what a death left of
/// files that were being replaced. Regular files of exactly that form of name; nothing else is touched. Not
/// for a moment in which another thread replaces a file there.
void removeSideFiles(const std::string& path);

} // namespace obrin
