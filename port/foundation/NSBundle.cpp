#include <Foundation/Foundation.h>

NSBundle* NSBundle::mainBundle() {
    static NSBundle& bundle = *new NSBundle;
    return &bundle;
}

NSRef<NSString> NSBundle::bundlePath() const {
    const CFURLRef url = CFBundleCopyBundleURL(CFBundleGetMainBundle());
    const CFStringRef path = CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle);
    NSRef<NSString> text = NSString::stringWithCFString(path);
    CFRelease(path);
    CFRelease(url);
    return text;
}
