// Operator messages with message identifiers.
#ifndef PRB_CORE_PRB_LOG_H
#define PRB_CORE_PRB_LOG_H

#include <cstdarg>

// Looks message numbers up in a table and hands the text to SendMessage. `args` of SendMessage
// points at a PRB_Log::Arguments.
class PRB_Log {
public:
    // A va_list cannot be passed by reference on every platform; in a struct it can.
    struct Arguments {
        va_list list;
    };

    // The table is borrowed; message number n is at index n-1.
    PRB_Log(const char* const* table, int size) : table_(table), size_(size) {}

    // Looks the text up and calls the form below; answers isError for a number without text.
    virtual int SendMessage(const char* a, const char* b, int c, int msgNumber, void*& args,
                            int isError) const;
    virtual int LogMessage(const char* a, const char* b, int c, int msgNumber, ...) const;
    // Mind the order: for an error the message number comes third.
    virtual int LogError(const char* a, const char* b, int msgNumber, int c, ...) const;
    // Does nothing and answers isError.
    virtual int SendMessage(const char* a, const char* b, int c, const char* text, void*& args,
                            int isError) const;

    int getTableSize() const { return size_; }

protected:
    ~PRB_Log() = default;

private:
    const char* const* table_;
    int size_;
};

#endif
