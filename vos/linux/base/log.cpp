/* SPDX-License-Identifier: MIT */
#include "log.h"

namespace vos {

ShownOutside::ShownOutside(Outside outside) {
    std::size_t length = 0;
    for (const char *from = outside.text; *from != '\0' && length + 2 < text_.size(); ++from) {
        if (*from == '%') text_[length++] = '%';
        text_[length++] = *from;
    }
    text_[length] = '\0';
}

}  // namespace vos
