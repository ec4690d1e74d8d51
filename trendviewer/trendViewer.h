#pragma once

#include <cstdint>
#include <functional>
#include <jni.h>
#include <string>

namespace obrin {

// What the trend viewer reads of one resource's files. Nothing is logged. Results: 0 success, 2 the agent is
// stopping, 3 the file cannot be opened, 5 the lock stayed busy. Any thread.

/// Takes the trend-file lock and reads the headline of a plot script: -1, "Unknown hours to exhaustion." and
/// -2.0 where there is none. The lock is held afterwards when the result is 0 or 3, and may be after 5.
std::int32_t lockFindTimeStampLabel(const std::string& path, std::int64_t* timestamp, std::string* text,
                                    float* level);

/// The limit of a plot script, 0 when it holds none.
std::int32_t findLimit(const std::string& path, std::int32_t* limit);

/// Hands every word of a curve to `append` until that says false. The number of words that it took; 3 also
/// when the file cannot be opened. A file of one word counts as empty.
std::int32_t slirpXYPairs(const std::string& path, const std::function<bool(const char*)>& append);

} // namespace obrin

// The trend viewer's native methods; LumetraSubagent.java says what they do. Any thread. What a method of the
// caller's throws, and NoSuchMethodError for one that is missing, stays pending and the call ends. A null
// object is a NullPointerException, three objects of different classes are an IllegalArgumentException, a
// null text is empty. Without native memory an OutOfMemoryError is thrown. The result means nothing while an
// exception is pending. The objects and their methods are looked at before the lock is taken; after an
// exception from one of the methods, or for want of memory, it is held.
extern "C" {

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetDescriptors(
    JNIEnv* env, jobject self, jobject list);

JNIEXPORT jint JNICALL
Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerLockAndGetTimeStampLabel(
    JNIEnv* env, jobject self, jstring name, jstring instance, jobject intOut, jobject textOut,
    jobject floatOut);

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetLimit(
    JNIEnv* env, jobject self, jstring name, jstring instance, jobject intOut);

JNIEXPORT jint JNICALL Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerGetXYPairs(
    JNIEnv* env, jobject self, jstring name, jstring instance, jstring kind, jobject list);

JNIEXPORT jint JNICALL
Java_com_quorin_sysmgt_tavl_LumetraAgent_LumetraSubagent_trendViewerUnlockFiles(JNIEnv* env, jobject self);
}
