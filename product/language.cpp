#include "product/language.h"

#include <windows.h>

namespace product {
namespace {

Language AskWindows() {
    wchar_t name[LOCALE_NAME_MAX_LENGTH] = {};  // 85 units, terminator included
    if (GetUserDefaultLocaleName(name, LOCALE_NAME_MAX_LENGTH) < 1) return Language::english;
    return ClassifyLocaleName(name);
}

}  // namespace

Language CurrentLanguage() {
    static const Language language = AskWindows();
    return language;
}

const wchar_t* LocalizedText(TextId id) {
    return TextIn(CurrentLanguage(), id);
}

}  // namespace product
