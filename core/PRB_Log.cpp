#include "core/PRB_Log.h"

#include "core/PRBTrace.h"

int PRB_Log::SendMessage(const char* a, const char* b, int c, int msgNumber, void*& args,
                         int isError) const {
    PRBTraceScope trace(PRBTraceClass::kMember, PRBComponent::kLog, "PRB_Log::SendMessage");
    if (msgNumber < 1 || msgNumber > size_) return trace.returns(isError);
    return trace.returns(SendMessage(a, b, c, table_[msgNumber - 1], args, isError));
}

int PRB_Log::LogMessage(const char* a, const char* b, int c, int msgNumber, ...) const {
    Arguments arguments;
    va_start(arguments.list, msgNumber);
    void* args = &arguments;
    int result = SendMessage(a, b, c, msgNumber, args, 0);
    va_end(arguments.list);
    return result;
}

int PRB_Log::LogError(const char* a, const char* b, int msgNumber, int c, ...) const {
    Arguments arguments;
    va_start(arguments.list, c);
    void* args = &arguments;
    int result = SendMessage(a, b, c, msgNumber, args, 1);
    va_end(arguments.list);
    return result;
}

int PRB_Log::SendMessage(const char*, const char*, int, const char*, void*&, int isError) const {
    return isError;
}
