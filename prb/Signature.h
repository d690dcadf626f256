// Names as the VM keeps them, made readable.
#ifndef PRB_PRB_SIGNATURE_H
#define PRB_PRB_SIGNATURE_H

#include <string>
#include <string_view>

namespace prb {

// "java/util/Map$Entry" to "java.util.Map$Entry"; "[[I" to "int[][]".
std::string readableClass(std::string_view internalName);

// "(ILjava/lang/String;[J)V" to "(int, String, long[])"; package names of parameters are left
// out. A text that is no signature is answered as it is.
std::string readableSignature(std::string_view signature);

// Bytes that are not printable UTF-8 as \xNN, so that a name cannot disturb a terminal, and
// JSON stays valid.
std::string printable(std::string_view text);

} // namespace prb

#endif
