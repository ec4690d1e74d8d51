#pragma once

#include "resources/resourceRecords.h"

namespace obrin {

/// One sampling cycle: stamps TimeStamp, reads every resource, makes a link for every disk that is new and
/// drops those of disks no longer mounted, appends one line to the archive and pushes every sample into its
/// ring. 1; -1 when a reading failed severely (the chain is as far as it got, no line is written) or when the
/// archive could not be written (the rings are filled all the same). Agent thread.
int RawDataRetrievalAndArchive(Clasp* clasp);

} // namespace obrin
