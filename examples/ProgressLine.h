// One line of a terminal that is drawn again and again: how far the work is, how fast it goes, how long it will take,
// and what it is at. It fits the terminal's width, and where the output is no terminal nothing is drawn.
//
// Thread-safety: none; one thread draws.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <sys/ioctl.h>
#include <unistd.h>

#include <strings/LStringFormat.h>

class ProgressLine {
public:
    // The fraction done, the files begun, and the name of the last one. Draws ten times a second at most.
    void Show(double dFraction, unsigned long dwFiles, const char* szName) {
        const Clock::time_point now = Clock::now();
        if (!bTerminal || (bDrawn && now - drawn < std::chrono::milliseconds(100)))
            return;
        drawn = now;
        bDrawn = true;

        char szLine[512];
        const int nWidth = Width() - 1; // the last column stays empty, so that nothing wraps
        const double dSeconds = std::chrono::duration<double>(now - begun).count();
        unsigned long dwUsed = Bar(szLine, dFraction, nWidth);
        if (dSeconds > 0.5 && dFraction > 0) {
            const auto nLeft = static_cast<unsigned>(dSeconds / dFraction * (1 - dFraction));
            dwUsed += tplsnprintf(szLine + dwUsed, sizeof szLine - dwUsed, "  %.0f files/s  %u:%.2u left",
                                  static_cast<double>(dwFiles) / dSeconds, nLeft / 60, nLeft % 60);
        }
        const int nName = nWidth - static_cast<int>(dwUsed) - 2;
        std::printf("\r%.*s%s%.*s\033[K", nWidth, szLine, nName > 0 ? "  " : "", BytesOf(szName, nName),
                    szName);
        std::fflush(stdout);
    }

    // Takes the line away, before something else is printed.
    void Clear() {
        if (bDrawn)
            std::printf("\r\033[K");
        std::fflush(stdout);
        bDrawn = false;
    }

private:
    using Clock = std::chrono::steady_clock;

    // A narrow terminal has room for the figure only.
    static unsigned long Bar(char (&szLine)[512], double dFraction, int nWidth) {
        constexpr int nBar = 20;
        if (nWidth < 3 * nBar)
            return tplsnprintf(szLine, sizeof szLine, "%3.0f %%", dFraction * 100);
        const int nDone = std::clamp(static_cast<int>(dFraction * nBar), 0, nBar);
        return tplsnprintf(szLine, sizeof szLine, "[%.*s%*s] %3.0f %%", nDone, "####################",
                           nBar - nDone, "", dFraction * 100);
    }

    static int Width() {
        winsize size;
        return ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col : 80;
    }

    // How many bytes of the name fit the columns: whole characters, those of more than two bytes taken as wide.
    // A name may hold what would move the cursor; it ends there.
    static int BytesOf(const char* szName, int nColumns) {
        int nBytes = 0;
        while (static_cast<unsigned char>(szName[nBytes]) >= ' ' && szName[nBytes] != 0x7F) {
            int nEnd = nBytes + 1;
            while ((szName[nEnd] & 0xC0) == 0x80)
                ++nEnd;
            nColumns -= nEnd - nBytes > 2 ? 2 : 1;
            if (nColumns < 0)
                break;
            nBytes = nEnd;
        }
        return nBytes;
    }

    const bool bTerminal = isatty(STDOUT_FILENO) == 1;
    const Clock::time_point begun = Clock::now();
    Clock::time_point drawn;
    bool bDrawn = false;
};
