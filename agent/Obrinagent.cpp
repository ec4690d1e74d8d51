// The native methods that Java calls. This room translates and lets the others work; no C++ exception leaves
// it.

#include "agent/agentRun.h"
#include "agent/agentState.h"
#include "agent/debugLog.h"
#include "agent/serviceNotice.h"
#include "agent/stopSync.h"
#include "prediction/javaEventSink.h"
#include "support/jniSupport.h"

#include <atomic>
#include <exception>
#include <jni.h>
#include <new>

namespace obrin {
namespace {

std::atomic<bool> running{false};

/// What the run borrows from Java, for as long as the native call lasts.
class JavaSide {
public:
    JavaSide(JNIEnv* env, jobject self, jobject events) : sink_(env, events) {
        gJEnv = env;
        gJObj = self;
        gJEvents = events;
        setEventSink(&sink_);
    }
    JavaSide(const JavaSide&) = delete;
    JavaSide& operator=(const JavaSide&) = delete;
    ~JavaSide() {
        setEventSink(nullptr);
        gJEnv = nullptr;
        gJObj = nullptr;
        gJEvents = nullptr;
    }

private:
    JavaEventSink sink_;
};

jint research(JNIEnv* env, jobject self, jobject events, jint argumentCount, jstring programName,
              jstring configPath) {
    if (running.exchange(true)) {
        DEBUGMSG("research_main is already running on another thread\n");
        return -1;
    }
    struct Ended {
        ~Ended() {
            tellStopping();
            running = false;
        }
    } ended;
    try {
        announceStart();
        beginExecuting();
        const JavaSide java(env, self, events);
        do {
            try {
                return runAgent(argumentCount, takeJavaText(env, programName), takeJavaText(env, configPath));
            } catch (const std::bad_alloc&) {
                DEBUGMSG("No memory for the start of the run, which is tried again in a second\n");
            }
            javaThreadSyncSleep(1);
        } while (continueExecuting != 0);
        return endRun();
    } catch (const std::exception& failure) {
        DEBUGMSG("The run ended early: %s\n", failure.what());
    } catch (...) {
        DEBUGMSG("The run ended early for an unknown reason\n");
    }
    closeLogFile();
    return -1;
}

} // namespace
} // namespace obrin

extern "C" {

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_ExecPrediction_research_1main(
    JNIEnv* env, jobject self, jobject events, jint argumentCount, jstring programName, jstring configPath) {
    return obrin::research(env, self, events, argumentCount, programName, configPath);
}

JNIEXPORT jint JNICALL
Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_javaThreadSyncPleaseStop(JNIEnv*, jobject) {
    return obrin::pleaseStop();
}
}
