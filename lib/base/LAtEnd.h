// Work that is done when a block is left, also when `pthread_exit` unwinds it.
//
// Thread-safety: as a local variable.
#pragma once

#pragma GCC visibility push(default)

template <typename TFunction>
class LAtEnd {
public:
    explicit LAtEnd(TFunction theFunction) : function(theFunction) {}
    LAtEnd(const LAtEnd&) = delete;
    LAtEnd& operator=(const LAtEnd&) = delete;
    ~LAtEnd() { function(); }

private:
    TFunction function;
};

#pragma GCC visibility pop
