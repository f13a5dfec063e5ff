#include "corefoundation/CFURL.h"
#include <Foundation/Foundation.h>

NSBundle* NSBundle::mainBundle() {
    static NSBundle& bundle = *new NSBundle;
    return &bundle;
}

NSRef<NSString> NSBundle::bundlePath() const {
    CFBundleRef bundle = CFBundleGetMainBundle();
    if (bundle == nullptr)
        return {};
    const port::CFRef<CFURLRef> url(CFBundleCopyBundleURL(bundle));
    return NSString::stringWithFileSystemRepresentation(url.get()->path.c_str());
}
