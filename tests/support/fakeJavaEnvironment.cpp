#include "tests/support/fakeJavaEnvironment.h"

#include "support/clock.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <span>
#include <unordered_map>
#include <utility>

namespace obrin::test {

bool isJavaEncoded(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const auto continues = [&](std::size_t i) { return i < text.size() && (byte(i) & 0xC0) == 0x80; };
    for (std::size_t i = 0; i < text.size();) {
        const unsigned lead = byte(i);
        if (lead >= 0x01 && lead <= 0x7F) {
            i += 1;
        } else if ((lead & 0xE0) == 0xC0) {
            const bool zero = lead == 0xC0 && i + 1 < text.size() && byte(i + 1) == 0x80;
            if (!continues(i + 1) || (lead < 0xC2 && !zero))
                return false;
            i += 2;
        } else if ((lead & 0xF0) == 0xE0) {
            if (!continues(i + 1) || !continues(i + 2) || (lead == 0xE0 && byte(i + 1) < 0xA0))
                return false;
            i += 3;
        } else {
            return false;
        }
    }
    return true;
}

namespace {

thread_local int callsInside = 0; ///< of this thread to functions of an environment

} // namespace

bool insideFakeJava() {
    return callsInside > 0;
}

namespace {

struct Method {
    std::string className;
    std::string name;
    std::string signature;
    bool isStatic = false;
};

/// What a reference leads to. A class is an object that names itself.
struct Object {
    std::string className;
    std::string text; ///< of a text or an exception
    bool isClass = false;
};

struct Reference {
    std::shared_ptr<Object> object;
    std::size_t frame = 0; ///< 0 the outermost
    bool isGlobal = false;
};

constexpr const char* textClass = "java/lang/String";
constexpr const char* bytesClass = "[B";

using Words = std::array<void*, sizeof(JNINativeInterface_) / sizeof(void*)>;
static_assert(sizeof(Words) == sizeof(JNINativeInterface_));

template <std::size_t slot>
void absentFunction() {
    std::fprintf(stderr, "fake Java environment: function %zu of the table is not there\n", slot);
    std::abort();
}

template <std::size_t... slots>
Words absentFunctions(std::index_sequence<slots...>) {
    return {reinterpret_cast<void*>(&absentFunction<slots>)...};
}

/// Kinds of a signature's arguments, one letter each, 'L' for every reference.
std::string argumentKinds(const std::string& signature) {
    std::string kinds;
    for (std::size_t i = 1; i < signature.size() && signature[i] != ')'; ++i) {
        bool isArray = false;
        for (; signature[i] == '['; ++i)
            isArray = true;
        const char kind = signature[i];
        if (kind == 'L')
            i = signature.find(';', i);
        kinds += isArray ? 'L' : kind;
    }
    return kinds;
}

std::string number(double value) {
    char text[64]; // a decimal point in every locale, the one under test included
    return {text, std::to_chars(text, text + sizeof text, value, std::chars_format::general, 17).ptr};
}

} // namespace

struct FakeJavaEnvironment::State : JNIEnv_ {
    mutable std::mutex mutex;
    JNINativeInterface_ table{};
    std::thread::id owner = std::this_thread::get_id();

    std::uintptr_t lastReference = 0x1000;
    std::unordered_map<std::uintptr_t, Reference> references;
    std::size_t mostLocal = 0;
    std::size_t frames = 0;
    std::map<std::string, std::shared_ptr<Object>> classes;
    std::vector<std::unique_ptr<Method>> methods;
    std::map<std::string, JavaBehaviour> behaviours;
    std::map<std::string, jint> staticNumbers; ///< by class and field
    std::map<std::string, void*> natives;      ///< by class and method
    JNIInvokeInterface_ machineTable{};
    struct Machine : JavaVM_ {
        State* state = nullptr;
    } machine{};
    std::map<const char*, std::unique_ptr<char[]>> copies;
    std::set<const char*> lent;

    bool copiesCharacters = true;
    std::size_t textsUntilFailure = 0;
    bool framesFail = false;
    bool arraysFail = false;
    jint osSupport = 0;
    jlong previousTime = 0;
    jdouble previousTimeToExhaustion = 0;
    std::function<void(const JavaCall&)> listener;
    bool keep = true;

    std::shared_ptr<Object> pending;
    std::vector<JavaCall> calls;
    std::vector<std::string> functionNames;
    std::vector<std::string> misuses;

    std::size_t locals() const {
        return static_cast<std::size_t>(std::count_if(references.begin(), references.end(),
                                                      [](const auto& r) { return !r.second.isGlobal; }));
    }

    void misuse(std::string text) {
        if (misuses.size() < 100)
            misuses.push_back(std::move(text));
    }

    template <class Handle>
    Handle refer(std::shared_ptr<Object> object, bool isGlobal = false) {
        if (object == nullptr)
            return nullptr;
        lastReference += 8;
        references[lastReference] = {std::move(object), frames, isGlobal};
        mostLocal = std::max(mostLocal, locals());
        return reinterpret_cast<Handle>(lastReference); // NOLINT(performance-no-int-to-ptr): never followed
    }

    std::shared_ptr<Object> follow(const char* function, jobject reference) {
        const auto found = references.find(reinterpret_cast<std::uintptr_t>(reference));
        if (found != references.end())
            return found->second.object;
        misuse(std::string(function) + ": " + (reference == nullptr ? "null" : "dead") + " reference");
        return nullptr;
    }

    std::shared_ptr<Object> classNamed(const std::string& name) {
        auto& entry = classes[name];
        if (entry == nullptr)
            entry = std::make_shared<Object>(Object{name, {}, true});
        return entry;
    }

    void raise(const std::string& className, const std::string& text) {
        pending = std::make_shared<Object>(Object{className, text, false});
    }

    JavaBehaviour behaviour(const std::string& method) const {
        const auto found = behaviours.find(method);
        return found == behaviours.end() ? JavaBehaviour{} : found->second;
    }

    /// True when `method` is one that was handed out.
    bool known(const Method* method) const {
        return std::any_of(methods.begin(), methods.end(), [&](const auto& m) { return m.get() == method; });
    }
};

/// The functions of the table. Each begins with entry(), which keeps the clerk's book.
struct FakeFunctions {
    using State = FakeJavaEnvironment::State;

    /// Holds the environment's mutex; the thread is inside the environment as long as it lives.
    class Lock {
    public:
        template <class Book>
        Lock(std::mutex& mutex, Book keepBook) : lock_(mutex) {
            ++callsInside;
            keepBook();
        }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;
        ~Lock() { --callsInside; }
        void lock() { lock_.lock(); }
        void unlock() { lock_.unlock(); }

    private:
        std::unique_lock<std::mutex> lock_;
    };

    static State& stateOf(JNIEnv* env) { return *static_cast<State*>(env); }

    static Lock entry(JNIEnv* env, const char* function, bool allowedWhilePending = false) {
        State& state = stateOf(env);
        return Lock(state.mutex, [&] { keepBook(state, function, allowedWhilePending); });
    }

    static void keepBook(State& state, const char* function, bool allowedWhilePending) {
        if (state.keep)
            state.functionNames.emplace_back(function);
        if (std::this_thread::get_id() != state.owner)
            state.misuse(std::string(function) + " on a thread that does not own the environment");
        if (state.pending != nullptr && !allowedWhilePending)
            state.misuse(std::string(function) + " while an exception is pending");
    }

    static jint getVersion(JNIEnv* env) {
        const Lock lock = entry(env, "GetVersion");
        return JNI_VERSION_10;
    }

    static jclass findClass(JNIEnv* env, const char* name) {
        const Lock lock = entry(env, "FindClass");
        State& state = stateOf(env);
        if (state.behaviour(name).mode == JavaBehaviour::Mode::missing) {
            state.raise("java/lang/NoClassDefFoundError", name);
            return nullptr;
        }
        return state.refer<jclass>(state.classNamed(name));
    }

    static jclass getObjectClass(JNIEnv* env, jobject object) {
        const Lock lock = entry(env, "GetObjectClass");
        State& state = stateOf(env);
        const auto target = state.follow("GetObjectClass", object);
        return target == nullptr ? nullptr : state.refer<jclass>(state.classNamed(target->className));
    }

    /// Classes have no ancestors here but java.lang.Object.
    static jboolean isInstanceOf(JNIEnv* env, jobject object, jclass type) {
        const Lock lock = entry(env, "IsInstanceOf");
        State& state = stateOf(env);
        const auto wanted = state.follow("IsInstanceOf", type);
        if (wanted != nullptr && !wanted->isClass)
            state.misuse("IsInstanceOf with something that is no class");
        if (object == nullptr)
            return JNI_TRUE; // as the null of any type
        const auto target = state.follow("IsInstanceOf", object);
        return wanted != nullptr && target != nullptr &&
                       (wanted->className == target->className || wanted->className == "java/lang/Object")
                   ? JNI_TRUE
                   : JNI_FALSE;
    }

    static jmethodID methodId(JNIEnv* env, const char* function, jclass type, const char* name,
                              const char* signature, bool isStatic) {
        const Lock lock = entry(env, function);
        State& state = stateOf(env);
        const auto target = state.follow(function, type);
        if (target == nullptr)
            return nullptr;
        if (!target->isClass)
            state.misuse(std::string(function) + " on something that is no class");
        if (state.behaviour(name).mode != JavaBehaviour::Mode::missing)
            for (const auto& method : state.methods)
                if (method->name == name && method->signature == signature && method->isStatic == isStatic &&
                    (method->className == target->className || method->className == "java/lang/Object"))
                    return reinterpret_cast<jmethodID>(method.get());
        state.raise("java/lang/NoSuchMethodError", name);
        return nullptr;
    }
    static jmethodID getMethodId(JNIEnv* env, jclass type, const char* name, const char* signature) {
        return methodId(env, "GetMethodID", type, name, signature, false);
    }
    static jmethodID getStaticMethodId(JNIEnv* env, jclass type, const char* name, const char* signature) {
        return methodId(env, "GetStaticMethodID", type, name, signature, true);
    }

    // Natives and fields.

    static jint getEnv(JavaVM* machine, void** env, jint) {
        *env = static_cast<State::Machine*>(machine)->state;
        return JNI_OK;
    }

    static jint registerNatives(JNIEnv* env, jclass type, const JNINativeMethod* given, jint count) {
        const Lock lock = entry(env, "RegisterNatives");
        State& state = stateOf(env);
        const auto target = state.follow("RegisterNatives", type);
        for (const JNINativeMethod& method : std::span(given, static_cast<std::size_t>(count))) {
            const bool declared = target != nullptr && std::ranges::any_of(state.methods, [&](const auto& m) {
                                      return m->className == target->className && m->name == method.name &&
                                             m->signature == method.signature;
                                  });
            if (!declared) {
                state.raise("java/lang/NoSuchMethodError", method.name);
                return JNI_ERR;
            }
            state.natives[target->className + "." + method.name] = method.fnPtr;
        }
        return JNI_OK;
    }

    static jfieldID getStaticFieldId(JNIEnv* env, jclass type, const char* name, const char* signature) {
        const Lock lock = entry(env, "GetStaticFieldID");
        State& state = stateOf(env);
        const auto target = state.follow("GetStaticFieldID", type);
        const auto found = target == nullptr ? state.staticNumbers.end()
                                             : state.staticNumbers.find(target->className + "." + name);
        if (found != state.staticNumbers.end() && std::string_view(signature) == "I")
            return reinterpret_cast<jfieldID>(&found->second);
        state.raise("java/lang/NoSuchFieldError", name);
        return nullptr;
    }
    static jint getStaticIntField(JNIEnv* env, jclass type, jfieldID field) {
        const Lock lock = entry(env, "GetStaticIntField");
        stateOf(env).follow("GetStaticIntField", type);
        return *reinterpret_cast<const jint*>(field);
    }

    // Arrays of bytes.

    static jbyteArray newByteArray(JNIEnv* env, jsize length) {
        const Lock lock = entry(env, "NewByteArray");
        State& state = stateOf(env);
        if (state.arraysFail) {
            state.raise("java/lang/OutOfMemoryError", "Java heap space");
            return nullptr;
        }
        return state.refer<jbyteArray>(std::make_shared<Object>(
            Object{bytesClass, std::string(static_cast<std::size_t>(length), '\0'), false}));
    }
    static void setByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length,
                                   const jbyte* bytes) {
        const Lock lock = entry(env, "SetByteArrayRegion");
        State& state = stateOf(env);
        const auto target = state.follow("SetByteArrayRegion", array);
        if (target == nullptr || target->className != bytesClass || start < 0 || length < 0 ||
            static_cast<std::size_t>(start) + static_cast<std::size_t>(length) > target->text.size()) {
            state.misuse("SetByteArrayRegion: not within an array of bytes");
            return;
        }
        target->text.replace(static_cast<std::size_t>(start), static_cast<std::size_t>(length),
                             reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
    }

    static jsize getArrayLength(JNIEnv* env, jarray array) {
        const Lock lock = entry(env, "GetArrayLength");
        const auto target = stateOf(env).follow("GetArrayLength", array);
        return target == nullptr ? 0 : static_cast<jsize>(target->text.size());
    }
    static void getByteArrayRegion(JNIEnv* env, jbyteArray array, jsize start, jsize length, jbyte* bytes) {
        const Lock lock = entry(env, "GetByteArrayRegion");
        State& state = stateOf(env);
        const auto target = state.follow("GetByteArrayRegion", array);
        if (target == nullptr || target->className != bytesClass || start < 0 || length < 0 ||
            static_cast<std::size_t>(start) + static_cast<std::size_t>(length) > target->text.size()) {
            state.misuse("GetByteArrayRegion: not within an array of bytes");
            return;
        }
        std::memcpy(bytes, target->text.data() + start, static_cast<std::size_t>(length));
    }

    // Texts.

    static jstring newStringUtf(JNIEnv* env, const char* characters) {
        const Lock lock = entry(env, "NewStringUTF");
        State& state = stateOf(env);
        if (characters == nullptr)
            return nullptr;
        if (!isJavaEncoded(characters))
            state.misuse("NewStringUTF: text is not in Java's encoding");
        if (state.textsUntilFailure == 1) {
            state.raise("java/lang/OutOfMemoryError", "Java heap space");
            return nullptr;
        }
        if (state.textsUntilFailure > 1)
            --state.textsUntilFailure;
        return state.refer<jstring>(std::make_shared<Object>(Object{textClass, characters, false}));
    }

    static jsize getStringUtfLength(JNIEnv* env, jstring text) {
        const Lock lock = entry(env, "GetStringUTFLength");
        const auto target = stateOf(env).follow("GetStringUTFLength", text);
        return target == nullptr ? 0 : static_cast<jsize>(target->text.size());
    }

    static const char* getStringUtfChars(JNIEnv* env, jstring text, jboolean* isCopy) {
        const Lock lock = entry(env, "GetStringUTFChars");
        State& state = stateOf(env);
        const auto target = state.follow("GetStringUTFChars", text);
        if (target == nullptr)
            return nullptr;
        if (isCopy != nullptr)
            *isCopy = state.copiesCharacters ? JNI_TRUE : JNI_FALSE;
        if (!state.copiesCharacters) {
            state.lent.insert(target->text.c_str());
            return target->text.c_str();
        }
        auto copy = std::make_unique<char[]>(target->text.size() + 1);
        std::memcpy(copy.get(), target->text.c_str(), target->text.size() + 1);
        const char* handedOut = copy.get();
        state.copies[handedOut] = std::move(copy);
        return handedOut;
    }

    static void releaseStringUtfChars(JNIEnv* env, jstring text, const char* characters) {
        const Lock lock = entry(env, "ReleaseStringUTFChars", true);
        State& state = stateOf(env);
        state.follow("ReleaseStringUTFChars", text);
        if (state.copies.erase(characters) == 0 && state.lent.count(characters) == 0)
            state.misuse("ReleaseStringUTFChars: characters that were never handed out");
    }

    // Exceptions.

    static jboolean exceptionCheck(JNIEnv* env) {
        const Lock lock = entry(env, "ExceptionCheck", true);
        return stateOf(env).pending == nullptr ? JNI_FALSE : JNI_TRUE;
    }
    static jthrowable exceptionOccurred(JNIEnv* env) {
        const Lock lock = entry(env, "ExceptionOccurred", true);
        State& state = stateOf(env);
        return state.refer<jthrowable>(state.pending);
    }
    static void exceptionClear(JNIEnv* env) {
        const Lock lock = entry(env, "ExceptionClear", true);
        stateOf(env).pending = nullptr;
    }
    static void exceptionDescribe(JNIEnv* env) {
        const Lock lock = entry(env, "ExceptionDescribe", true);
        stateOf(env).pending = nullptr;
    }
    static jint throwNew(JNIEnv* env, jclass type, const char* message) {
        const Lock lock = entry(env, "ThrowNew");
        State& state = stateOf(env);
        const auto target = state.follow("ThrowNew", type);
        if (target == nullptr)
            return JNI_ERR;
        state.raise(target->className, message == nullptr ? "" : message);
        return JNI_OK;
    }

    // References.

    static jint pushLocalFrame(JNIEnv* env, jint) {
        const Lock lock = entry(env, "PushLocalFrame", true);
        State& state = stateOf(env);
        if (state.framesFail) {
            state.raise("java/lang/OutOfMemoryError", "Java heap space");
            return JNI_ENOMEM;
        }
        ++state.frames;
        return JNI_OK;
    }
    static jobject popLocalFrame(JNIEnv* env, jobject result) {
        const Lock lock = entry(env, "PopLocalFrame", true);
        State& state = stateOf(env);
        const auto kept = result == nullptr ? nullptr : state.follow("PopLocalFrame", result);
        if (state.frames == 0) {
            state.misuse("PopLocalFrame without a frame");
            return nullptr;
        }
        std::erase_if(state.references,
                      [&](const auto& r) { return !r.second.isGlobal && r.second.frame == state.frames; });
        --state.frames;
        return state.refer<jobject>(kept);
    }
    static jint ensureLocalCapacity(JNIEnv* env, jint) {
        const Lock lock = entry(env, "EnsureLocalCapacity");
        return JNI_OK;
    }
    static jobject newLocalRef(JNIEnv* env, jobject reference) {
        const Lock lock = entry(env, "NewLocalRef");
        State& state = stateOf(env);
        return reference == nullptr ? nullptr : state.refer<jobject>(state.follow("NewLocalRef", reference));
    }
    static jobject newGlobalRef(JNIEnv* env, jobject reference) {
        const Lock lock = entry(env, "NewGlobalRef");
        State& state = stateOf(env);
        return reference == nullptr ? nullptr
                                    : state.refer<jobject>(state.follow("NewGlobalRef", reference), true);
    }
    static void drop(JNIEnv* env, const char* function, jobject reference, bool isGlobal) {
        const Lock lock = entry(env, function, true);
        State& state = stateOf(env);
        if (reference == nullptr)
            return;
        const auto found = state.references.find(reinterpret_cast<std::uintptr_t>(reference));
        if (found == state.references.end() || found->second.isGlobal != isGlobal)
            state.misuse(std::string(function) + ": not a live reference of that kind");
        else
            state.references.erase(found);
    }
    static void deleteLocalRef(JNIEnv* env, jobject reference) {
        drop(env, "DeleteLocalRef", reference, false);
    }
    static void deleteGlobalRef(JNIEnv* env, jobject reference) {
        drop(env, "DeleteGlobalRef", reference, true);
    }
    static jboolean isSameObject(JNIEnv* env, jobject a, jobject b) {
        const Lock lock = entry(env, "IsSameObject");
        State& state = stateOf(env);
        const auto target = [&](jobject r) {
            return r == nullptr ? nullptr : state.follow("IsSameObject", r);
        };
        return target(a) == target(b) ? JNI_TRUE : JNI_FALSE;
    }

    // Method calls. Next gives the next argument of a kind, whatever form the call came in.

    template <class Next>
    static std::vector<std::string> takeArguments(State& state, const Method& method, Next next) {
        std::vector<std::string> arguments;
        for (const char kind : argumentKinds(method.signature)) {
            const jvalue value = next(kind);
            switch (kind) {
            case 'L': {
                const auto target = value.l == nullptr ? nullptr : state.follow(method.name.c_str(), value.l);
                arguments.push_back(target == nullptr ? "(null)" : target->text);
                break;
            }
            case 'D':
                arguments.push_back(number(value.d));
                break;
            case 'F':
                arguments.push_back(number(static_cast<double>(value.f)));
                break;
            case 'J':
                arguments.push_back(std::to_string(value.j));
                break;
            default:
                arguments.push_back(std::to_string(value.i));
                break;
            }
        }
        return arguments;
    }

    static jvalue nextVariadic(std::va_list& list, char kind) {
        jvalue value{};
        switch (kind) {
        case 'L':
            value.l = va_arg(list, jobject);
            break;
        case 'D':
            value.d = va_arg(list, jdouble);
            break;
        case 'F':
            value.f = static_cast<jfloat>(va_arg(list, jdouble));
            break;
        case 'J':
            value.j = va_arg(list, jlong);
            break;
        default:
            value.i = va_arg(list, jint);
            break;
        }
        return value;
    }

    static jvalue answer(State& state, const Method& method, const Object& target) {
        jvalue value{};
        if (method.name == "getOs_support")
            value.i = state.osSupport;
        else if (method.name == "getPrev_time")
            value.j = state.previousTime;
        else if (method.name == "getPrev_tte")
            value.d = state.previousTimeToExhaustion;
        else if (method.name == "toString")
            value.l = state.refer<jobject>(std::make_shared<Object>(
                Object{textClass, target.isClass ? target.className : target.className + ": " + target.text,
                       false}));
        else if (method.signature.back() == 'Z')
            value.z = JNI_TRUE;
        return value;
    }

    /// The one road of every method call.
    template <class Next>
    static jvalue call(JNIEnv* env, const char* function, jobject receiver, jmethodID id, bool isStatic,
                       char kind, Next next) {
        Lock lock = entry(env, function);
        State& state = stateOf(env);
        const auto target = state.follow(function, receiver);
        const auto* method = reinterpret_cast<const Method*>(id);
        if (target == nullptr || !state.known(method)) {
            state.misuse(std::string(function) + ": no such receiver or method");
            return {};
        }
        if (target->className != method->className && method->className != "java/lang/Object")
            state.misuse(std::string(function) + ": " + method->name + " on an object of " +
                         target->className);
        const char result = method->signature[method->signature.find(')') + 1];
        if (method->isStatic != isStatic || target->isClass != isStatic || result != kind)
            state.misuse(std::string(function) + " for " + method->name + method->signature);
        const JavaCall record{method->name, takeArguments(state, *method, next)};
        if (state.keep)
            state.calls.push_back(record);
        const JavaBehaviour behaviour = state.behaviour(method->name);
        const auto listener = state.listener;
        lock.unlock(); // a method that blocks does not hold up those who count
        if (listener)
            listener(record);
        if (behaviour.mode == JavaBehaviour::Mode::block)
            systemClock().pause(behaviour.blocking);
        lock.lock();
        if (behaviour.mode == JavaBehaviour::Mode::raise) {
            state.raise("java/lang/IllegalStateException", method->name + " was told to throw");
            return {};
        }
        return behaviour.mode == JavaBehaviour::Mode::refuse ? jvalue{} : answer(state, *method, *target);
    }

    // Three forms of one call: "...", va_list, array.

    template <class Result>
    static Result pick(const jvalue& value) {
        if constexpr (std::is_same_v<Result, jboolean>)
            return value.z;
        else if constexpr (std::is_same_v<Result, jint>)
            return value.i;
        else if constexpr (std::is_same_v<Result, jlong>)
            return value.j;
        else if constexpr (std::is_same_v<Result, jdouble>)
            return value.d;
        else if constexpr (std::is_same_v<Result, jobject>)
            return value.l;
    }

    template <class Result>
    static constexpr char kindOf = std::is_same_v<Result, jboolean>  ? 'Z'
                                   : std::is_same_v<Result, jint>    ? 'I'
                                   : std::is_same_v<Result, jlong>   ? 'J'
                                   : std::is_same_v<Result, jdouble> ? 'D'
                                   : std::is_same_v<Result, jobject> ? 'L'
                                                                     : 'V';

    template <class Receiver>
    static constexpr bool isStaticCall = std::is_same_v<Receiver, jclass>;

    template <class Result, class Receiver>
    static Result callA(JNIEnv* env, Receiver receiver, jmethodID id, const jvalue* values) {
        return pick<Result>(call(env, "Call<type>MethodA", receiver, id, isStaticCall<Receiver>,
                                 kindOf<Result>, [&](char) { return *values++; }));
    }
    template <class Result, class Receiver>
    static Result callV(JNIEnv* env, Receiver receiver, jmethodID id, std::va_list given) {
        std::va_list list;
        va_copy(list, given);
        const jvalue value = call(env, "Call<type>MethodV", receiver, id, isStaticCall<Receiver>,
                                  kindOf<Result>, [&](char kind) { return nextVariadic(list, kind); });
        va_end(list);
        return pick<Result>(value);
    }
    template <class Result, class Receiver>
    static Result callVariadic(JNIEnv* env, Receiver receiver, jmethodID id, ...) {
        std::va_list list;
        va_start(list, id);
        const jvalue value = call(env, "Call<type>Method", receiver, id, isStaticCall<Receiver>,
                                  kindOf<Result>, [&](char kind) { return nextVariadic(list, kind); });
        va_end(list);
        return pick<Result>(value);
    }

    static void fillCalls(JNINativeInterface_& table) {
        table.CallStaticBooleanMethod = &callVariadic<jboolean, jclass>;
        table.CallStaticBooleanMethodV = &callV<jboolean, jclass>;
        table.CallStaticBooleanMethodA = &callA<jboolean, jclass>;
        table.CallStaticIntMethod = &callVariadic<jint, jclass>;
        table.CallStaticIntMethodV = &callV<jint, jclass>;
        table.CallStaticIntMethodA = &callA<jint, jclass>;
        table.CallStaticLongMethod = &callVariadic<jlong, jclass>;
        table.CallStaticLongMethodV = &callV<jlong, jclass>;
        table.CallStaticLongMethodA = &callA<jlong, jclass>;
        table.CallStaticDoubleMethod = &callVariadic<jdouble, jclass>;
        table.CallStaticDoubleMethodV = &callV<jdouble, jclass>;
        table.CallStaticDoubleMethodA = &callA<jdouble, jclass>;
        table.CallVoidMethod = &callVariadic<void, jobject>;
        table.CallVoidMethodV = &callV<void, jobject>;
        table.CallVoidMethodA = &callA<void, jobject>;
        table.CallObjectMethod = &callVariadic<jobject, jobject>;
        table.CallObjectMethodV = &callV<jobject, jobject>;
        table.CallObjectMethodA = &callA<jobject, jobject>;
    }

    static void fill(JNINativeInterface_& table) {
        const Words words = absentFunctions(std::make_index_sequence<std::tuple_size_v<Words>>());
        std::memcpy(static_cast<void*>(&table), words.data(), sizeof table);
        table.GetVersion = &getVersion;
        table.FindClass = &findClass;
        table.GetObjectClass = &getObjectClass;
        table.IsInstanceOf = &isInstanceOf;
        table.GetMethodID = &getMethodId;
        table.GetStaticMethodID = &getStaticMethodId;
        table.RegisterNatives = &registerNatives;
        table.GetStaticFieldID = &getStaticFieldId;
        table.GetStaticIntField = &getStaticIntField;
        table.NewByteArray = &newByteArray;
        table.SetByteArrayRegion = &setByteArrayRegion;
        table.GetArrayLength = &getArrayLength;
        table.GetByteArrayRegion = &getByteArrayRegion;
        table.NewStringUTF = &newStringUtf;
        table.GetStringUTFLength = &getStringUtfLength;
        table.GetStringUTFChars = &getStringUtfChars;
        table.ReleaseStringUTFChars = &releaseStringUtfChars;
        table.ExceptionCheck = &exceptionCheck;
        table.ExceptionOccurred = &exceptionOccurred;
        table.ExceptionClear = &exceptionClear;
        table.ExceptionDescribe = &exceptionDescribe;
        table.ThrowNew = &throwNew;
        table.PushLocalFrame = &pushLocalFrame;
        table.PopLocalFrame = &popLocalFrame;
        table.EnsureLocalCapacity = &ensureLocalCapacity;
        table.NewLocalRef = &newLocalRef;
        table.NewGlobalRef = &newGlobalRef;
        table.DeleteLocalRef = &deleteLocalRef;
        table.DeleteGlobalRef = &deleteGlobalRef;
        table.IsSameObject = &isSameObject;
        fillCalls(table);
    }
};

namespace {
constexpr const char* eventsClass = "com/quorin/sysmgt/tavl/LumetraAgent/AgentEvents";
} // namespace

FakeJavaEnvironment::FakeJavaEnvironment() : state_(std::make_unique<State>()) {
    FakeFunctions::fill(state_->table);
    state_->functions = &state_->table;
    state_->machineTable.GetEnv = &FakeFunctions::getEnv;
    state_->machine.functions = &state_->machineTable;
    state_->machine.state = state_.get();
    declareMethod("java/lang/Object", "toString", "()Ljava/lang/String;", false);
    declareMethod(eventsClass, "sendEvent",
                  "(Ljava/lang/String;DLjava/lang/String;Ljava/lang/String;Ljava/lang/String;)Z", true);
    for (const char* name : {"sendUpperToleranceEvent", "sendInnerToleranceEvent"})
        declareMethod(eventsClass, name, "(Ljava/lang/String;Ljava/lang/String;D)Z", true);
    declareMethod(eventsClass, "getOs_support", "()I", true);
    declareMethod(eventsClass, "getPrev_time", "()J", true);
    declareMethod(eventsClass, "getPrev_tte", "()D", true);
}

FakeJavaEnvironment::~FakeJavaEnvironment() = default;

JNIEnv* FakeJavaEnvironment::env() {
    return state_.get();
}

JavaVM* FakeJavaEnvironment::machine() {
    return &state_->machine;
}

void FakeJavaEnvironment::attach() {
    const std::lock_guard lock(state_->mutex);
    state_->owner = std::this_thread::get_id();
}

jobject FakeJavaEnvironment::makeEvents() {
    return makeObject(eventsClass);
}

jobject FakeJavaEnvironment::makeObject(const std::string& className) {
    const std::lock_guard lock(state_->mutex);
    return state_->refer<jobject>(std::make_shared<Object>(Object{className, {}, false}));
}

jstring FakeJavaEnvironment::makeText(std::string_view javaEncoded) {
    const std::lock_guard lock(state_->mutex);
    return state_->refer<jstring>(
        std::make_shared<Object>(Object{textClass, std::string(javaEncoded), false}));
}

jbyteArray FakeJavaEnvironment::makeBytes(std::string_view bytes) {
    const std::lock_guard lock(state_->mutex);
    return state_->refer<jbyteArray>(std::make_shared<Object>(Object{bytesClass, std::string(bytes), false}));
}

void FakeJavaEnvironment::declareMethod(const std::string& className, const std::string& name,
                                        const std::string& signature, bool isStatic) {
    const std::lock_guard lock(state_->mutex);
    state_->methods.push_back(std::make_unique<Method>(Method{className, name, signature, isStatic}));
}

void FakeJavaEnvironment::setStaticNumber(const std::string& className, const std::string& field,
                                          jint value) {
    const std::lock_guard lock(state_->mutex);
    state_->staticNumbers[className + "." + field] = value;
}

void FakeJavaEnvironment::setBehaviour(const std::string& method, JavaBehaviour behaviour) {
    const std::lock_guard lock(state_->mutex);
    state_->behaviours[method] = behaviour;
}

void FakeJavaEnvironment::setCopiesCharacters(bool copies) {
    const std::lock_guard lock(state_->mutex);
    state_->copiesCharacters = copies;
}

void FakeJavaEnvironment::failNewTextsFrom(std::size_t n) {
    const std::lock_guard lock(state_->mutex);
    state_->textsUntilFailure = n;
}

void FakeJavaEnvironment::failNewArrays(bool fail) {
    const std::lock_guard lock(state_->mutex);
    state_->arraysFail = fail;
}

void FakeJavaEnvironment::failLocalFrames(bool fail) {
    const std::lock_guard lock(state_->mutex);
    state_->framesFail = fail;
}

void FakeJavaEnvironment::setAnswers(jint osSupport, jlong previousTime, jdouble previousTimeToExhaustion) {
    const std::lock_guard lock(state_->mutex);
    state_->osSupport = osSupport;
    state_->previousTime = previousTime;
    state_->previousTimeToExhaustion = previousTimeToExhaustion;
}

void FakeJavaEnvironment::onCall(std::function<void(const JavaCall&)> listener) {
    const std::lock_guard lock(state_->mutex);
    state_->listener = std::move(listener);
}

void FakeJavaEnvironment::keepRecords(bool keep) {
    const std::lock_guard lock(state_->mutex);
    state_->keep = keep;
}

std::vector<JavaCall> FakeJavaEnvironment::calls() const {
    const std::lock_guard lock(state_->mutex);
    return state_->calls;
}

std::vector<JavaCall> FakeJavaEnvironment::callsOf(const std::string& method) const {
    auto found = calls();
    std::erase_if(found, [&](const JavaCall& call) { return call.method != method; });
    return found;
}

std::vector<std::string> FakeJavaEnvironment::functionCalls() const {
    const std::lock_guard lock(state_->mutex);
    return state_->functionNames;
}

std::vector<std::string> FakeJavaEnvironment::misuses() const {
    const std::lock_guard lock(state_->mutex);
    return state_->misuses;
}

std::size_t FakeJavaEnvironment::localReferences() const {
    const std::lock_guard lock(state_->mutex);
    return state_->locals();
}

std::size_t FakeJavaEnvironment::mostLocalReferences() const {
    const std::lock_guard lock(state_->mutex);
    return state_->mostLocal;
}

std::size_t FakeJavaEnvironment::globalReferences() const {
    const std::lock_guard lock(state_->mutex);
    return state_->references.size() - state_->locals();
}

std::size_t FakeJavaEnvironment::openFrames() const {
    const std::lock_guard lock(state_->mutex);
    return state_->frames;
}

std::size_t FakeJavaEnvironment::unreleasedCharacters() const {
    const std::lock_guard lock(state_->mutex);
    return state_->copies.size();
}

void* FakeJavaEnvironment::registered(const std::string& className, const std::string& method) const {
    const std::lock_guard lock(state_->mutex);
    const auto found = state_->natives.find(className + "." + method);
    return found == state_->natives.end() ? nullptr : found->second;
}

std::string FakeJavaEnvironment::bytesOf(jbyteArray array) const {
    const std::lock_guard lock(state_->mutex);
    const auto object = state_->follow("bytesOf", array);
    return object == nullptr ? "" : object->text;
}

std::optional<std::string> FakeJavaEnvironment::pendingException() const {
    const std::lock_guard lock(state_->mutex);
    if (state_->pending == nullptr)
        return std::nullopt;
    return state_->pending->className + ": " + state_->pending->text;
}

} // namespace obrin::test
