#pragma once

#include "support/handles.h"

#include <optional>
#include <string>
#include <sys/stat.h>

namespace obrin {

// How the agent opens its files. Whoever may write a directory can put anything there under the name of one
// of them: a link to another's file, a FIFO that nobody reads, a file to be read in its place. Each of these
// opens returns at once and gives a regular file or nothing. In a directory that everybody may write
// (/tmp, say) the file must besides be the agent's own user's or root's, and have no other name: others make
// links there to files that are not theirs. Descriptors are close-on-exec. Any thread.

/// Permission bits, less the umask, of the files that the agent makes: nobody else writes them.
inline constexpr unsigned plainFileMode = 0644;
/// Those of files that name the processes of users: not everybody reads them.
inline constexpr unsigned privateFileMode = 0640;

/// Opens a file that the agent itself writes, with the flags of open(2): never through a symbolic link. One
/// that is to be emptied (O_TRUNC) is only once nothing speaks against it. An owner of nothing on failure,
/// with the errno that whyNotOpened takes.
Descriptor openOwn(const std::string& path, int flags, unsigned mode = plainFileMode);

/// Opens a file that people write for the agent: it may be a symbolic link, of the agent's user or root where
/// everybody may make one, to a file that openOwn opens.
Descriptor openGiven(const std::string& path, int flags);

/// The file that `path` leads to through symbolic links that openGiven follows, `path` itself when it is no
/// link or not there. Nothing, with errno, when the link leads nowhere or is not followed.
std::optional<std::string> givenTarget(const std::string& path);

/// Whether openOwn would take what lies at `path`, which lstat(2) has described. False with errno.
bool mayBeOpened(const std::string& path, const struct stat& state);

/// Whether such an errno means that a directory, a FIFO or a device lies there that could be opened.
bool isNoRegularFile(int error);

/// Such an errno in words, to follow a colon; those of strerror for all that says nothing of what lies there.
/// Takes no memory.
const char* whyNotOpened(int error);

} // namespace obrin
