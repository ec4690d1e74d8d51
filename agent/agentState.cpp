#include "agent/agentState.h"

#include "resources/resourceRecords.h"

namespace obrin {

JNIEnv* gJEnv = nullptr;
jobject gJObj = nullptr;
jobject gJEvents = nullptr;
Clasp* pResourceClasp = nullptr;
Mutex chainLock;
std::int64_t TimeStamp = 0;
int enablepooltaggingflag = 0;
int grace_period = 0;

Link* getFirstLink() {
    MutexLock lock(chainLock);
    return pResourceClasp == nullptr ? nullptr : pResourceClasp->pFirstLink;
}

std::optional<std::string> getHomeDirectory() {
    MutexLock lock(chainLock);
    if (pResourceClasp == nullptr || pResourceClasp->pFirstLink == nullptr)
        return std::nullopt;
    return pResourceClasp->DataHomeDirectory;
}

} // namespace obrin
