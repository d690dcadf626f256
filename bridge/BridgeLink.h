// What the bridge tells the Java driver about itself: the natives of class BridgeLink.
#ifndef PRB_BRIDGE_BRIDGELINK_H
#define PRB_BRIDGE_BRIDGELINK_H

#include <string>
#include <vector>

#include <jni.h>

namespace bridge {

// The bridge's version, as in the release's name.
extern const char kBridgeVersion[];

// The address of a native method of BridgeLink, or null for a name that it does not have.
void* bridgeNative(const std::string& method);

// The counters' names in the order of their values; both from one table.
std::vector<std::string> counterNames();
std::vector<jlong> counterValues();

// Something that this run has to do without, in words; it travels in the fact "limits".
void noteLimit(const std::string& text);
// The same for the present collection alone; replaces what was said for the one before.
void setCollectionLimit(const std::string& text);

// The facts as "key=value".
std::vector<std::string> bridgeFacts();

} // namespace bridge

#endif
