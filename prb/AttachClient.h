// Speaks to a running HotSpot VM the way the JDK's own tools do: a file .attach_pid<N> and a
// SIGQUIT make the VM open the socket /tmp/.java_pid<N>; one request and one answer pass through
// it, as texts. Needs no JDK.
//
// Used by one thread. Nothing is left behind but the VM's socket, which the VM keeps for its life.
#ifndef PRB_PRB_ATTACHCLIENT_H
#define PRB_PRB_ATTACHCLIENT_H

#include "prb/Target.h"

#include <functional>
#include <string>

namespace prb {

class AttachClient {
public:
    // Sends the signal; tests give one of their own. Answers 0 or -1 with errno.
    using Kill = std::function<int(pid_t, int)>;

    explicit AttachClient(const Target& target);
    AttachClient(const Target& target, Kill kill);

    // Longest text that the VM takes for one argument.
    static constexpr std::size_t kLongestArgument = 1024;

    // Loads an agent library by its path as the VM sees it, and answers when its entry function
    // has returned. An empty text, or what went wrong in one line.
    // `seconds`: the longest wait for the VM to listen, and again for its answer.
    std::string load(const std::string& library, const std::string& options, int seconds);

private:
    std::string socketPath() const;
    std::string invite(int seconds);
    std::string connect(int& socket, bool& stale) const;
    std::string exchange(int socket, const std::string& request, int seconds, std::string& answer);
    std::string broken(const std::string& what) const;
    std::string judge(const std::string& answer, const std::string& library) const;

    const Target& target_;
    Kill kill_;
};

} // namespace prb

#endif
