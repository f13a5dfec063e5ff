#include <AppKit/AppKit.h>

#include "LLoginHelper.h"

int main(int argc, char* argv[]) {
    return NSApplicationMain(argc, argv, []() -> NSApplicationDelegate* { return new LLoginHelper; });
}
