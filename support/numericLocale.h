#pragma once

#include <locale.h>

namespace obrin {

/// While it lives, the calling thread formats and reads numbers with a decimal point, whatever locale the
/// process has. The process's locale and other threads are not touched.
class NumericLocale {
public:
    NumericLocale();
    NumericLocale(const NumericLocale&) = delete;
    NumericLocale& operator=(const NumericLocale&) = delete;
    ~NumericLocale();

private:
    locale_t before_;
};

/// The locale object behind NumericLocale ("C" numbers), for calls that take one, strtod_l say. Never freed.
locale_t plainNumbers();

} // namespace obrin
