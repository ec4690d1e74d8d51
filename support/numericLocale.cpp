#include "support/numericLocale.h"

namespace obrin {

locale_t plainNumbers() {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", locale_t{});
    return plain;
}

NumericLocale::NumericLocale() : before_(::uselocale(plainNumbers())) {}

NumericLocale::~NumericLocale() {
    ::uselocale(before_);
}

} // namespace obrin
