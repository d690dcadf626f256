// What somebody asks of a JVM that runs: to begin a collection, or (option detach=yes) to end the
// present one. The first request loads the bridge; later ones find it.
//
// The answer goes to the file that the option reply= names, which must exist: lines "key=value".
//   state=started   a collection began          state=failed   none could be begun
//   state=busy      one is running already      state=idle     there was none to end
//   state=ended     it has ended
//   capture=PATH    the collection's capture file, absolute
//   said=LINE       what was said on standard error meanwhile, in order
#ifndef PRB_BRIDGE_ATTACHREQUEST_H
#define PRB_BRIDGE_ATTACHREQUEST_H

#include <jni.h>

namespace bridge {

class AttachRequest {
public:
    // REQUIRES: the calling thread is the VM's, and the only one that serves requests.
    static void serve(JavaVM* vm, const char* optionText);
};

} // namespace bridge

#endif
