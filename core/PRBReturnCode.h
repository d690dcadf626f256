// The outcome of an operation: 0 is success, every other code has one fixed text. The numbers
// and texts are shared with the Java side and the monitoring agent.
#ifndef PRB_CORE_PRBRETURNCODE_H
#define PRB_CORE_PRBRETURNCODE_H

class PRBReturnCode {
public:
    PRBReturnCode() = default;
    PRBReturnCode(const unsigned int& code) : code_(code) {}
    PRBReturnCode& operator=(const unsigned int& code) {
        code_ = code;
        return *this;
    }
    operator unsigned int() const { return code_; }

    bool bad() const { return code_ != 0; }
    bool OK() const { return code_ == 0; }

    // The table's text, "Unknown" for a code that is not in it. Never null.
    static const char* getDescription(unsigned int code);
    const char* getDescription() const { return getDescription(code_); }

private:
    unsigned int code_ = 0;
};

#endif
