#include "platform/system/LocalAuthOwnerCheck.h"

#include "l10n/L.h"

#import <Foundation/Foundation.h>
#import <LocalAuthentication/LocalAuthentication.h>

#include <dispatch/dispatch.h>

namespace nuvrel {

OwnerCheck::Outcome LocalAuthOwnerCheck::confirmOwner(const QString& reason)
{
    @autoreleasepool {
        LAContext* context = [[LAContext alloc] init];
        context.localizedCancelTitle = L("Annuler").toNSString();
        NSError* unavailable = nil;
        if (![context canEvaluatePolicy:LAPolicyDeviceOwnerAuthentication error:&unavailable])
            return Outcome::Unavailable;
        // The sheet answers on a queue of its own; the caller is a background task that waits anyway.
        __block bool confirmed = false;
        dispatch_semaphore_t answered = dispatch_semaphore_create(0);
        [context evaluatePolicy:LAPolicyDeviceOwnerAuthentication
                localizedReason:reason.toNSString()
                          reply:^(BOOL success, NSError*) {
                            confirmed = success;
                            dispatch_semaphore_signal(answered);
                          }];
        dispatch_semaphore_wait(answered, DISPATCH_TIME_FOREVER);
        return confirmed ? Outcome::Confirmed : Outcome::Refused;
    }
}

} // namespace nuvrel
