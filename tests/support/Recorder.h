// A process interface of a test's own.
#pragma once

#include <string>

#include "threads/LProcessInterface.h"

// Keeps what it is told, each behind a bar, and asks to stop at the question of that number.
struct Recorder : LProcessInterfaceVoid {
    explicit Recorder(int nLast = -1) : nQuestions(nLast) {}
    bool IsToStop() override { return nQuestions-- == 0; }
    void SetError(const char* szText) override { (sTold += "|") += szText; }
    void SetStatus(const char* szText, int nLine) override {
        SetError((std::to_string(nLine) + szText).c_str());
    }
    void SetProgress(double dFraction) override { SetError(std::to_string(dFraction).c_str()); }
    void SetProgressIndeterminateOn() override { SetError("on"); }
    void SetProgressIndeterminateOff() override { SetError("off"); }

    int nQuestions;
    std::string sTold;
};
