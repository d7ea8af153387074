#include "platform/system/AirDropShare.h"

#import <AppKit/AppKit.h>
#import <Foundation/Foundation.h>

namespace nuvrel {

namespace {

NSArray* fileUrls(const QStringList& files)
{
    NSMutableArray* urls = [NSMutableArray arrayWithCapacity:NSUInteger(files.size())];
    for (const QString& file : files)
        [urls addObject:[NSURL fileURLWithPath:file.toNSString()]];
    return urls;
}

} // namespace

NearbyShare::Availability AirDropShare::availability()
{
    // Whether Wi-Fi and Bluetooth allow it is only known when files are offered.
    @autoreleasepool {
        NSSharingService* service = [NSSharingService sharingServiceNamed:NSSharingServiceNameSendViaAirDrop];
        return {service ? Availability::Kind::Ready : Availability::Kind::NotInstalled, {}};
    }
}

NearbyShare::Outcome AirDropShare::send(const QStringList& files, const QString&)
{
    __block Outcome outcome = Outcome::NotAvailable;
    NSArray* urls = fileUrls(files);
    void (^perform)() = ^{
      NSSharingService* service = [NSSharingService sharingServiceNamed:NSSharingServiceNameSendViaAirDrop];
      if (!service || ![service canPerformWithItems:urls])
          return;
      [service performWithItems:urls];
      outcome = Outcome::PickerOpened;
    };
    // Called from a worker: the sharing window is the main thread's.
    if ([NSThread isMainThread])
        perform();
    else
        dispatch_sync(dispatch_get_main_queue(), perform);
    return outcome;
}

} // namespace nuvrel
