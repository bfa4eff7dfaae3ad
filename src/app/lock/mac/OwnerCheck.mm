#include "app/lock/Lock.h"

#import <AppKit/AppKit.h>
#import <LocalAuthentication/LocalAuthentication.h>

#include <QMetaObject>
#include <QPointer>

namespace bc::app {

void authenticateOwner(const std::string& reason,
                       std::function<void(std::optional<std::string>)> done) {
    LAContext* context = [[LAContext alloc] init];
    NSError* unavailable = nil;
    if (![context canEvaluatePolicy:LAPolicyDeviceOwnerAuthentication error:&unavailable]) {
        done("This Mac can't verify its owner.");
        return;
    }
    auto* finish = new std::function<void(std::optional<std::string>)>(std::move(done));
    [context evaluatePolicy:LAPolicyDeviceOwnerAuthentication
            localizedReason:[NSString stringWithUTF8String:reason.c_str()]
                      reply:^(BOOL success, NSError* error) {
                        std::optional<std::string> outcome;
                        if (!success) outcome = error.localizedDescription.UTF8String;
                        // The reply comes on a private queue; the lock lives on the main thread.
                        dispatch_async(dispatch_get_main_queue(), ^{
                          (*finish)(outcome);
                          delete finish;
                        });
                      }];
}

void watchWorkspace(QObject* owner, std::function<void()> lock) {
    NSNotificationCenter* center = NSWorkspace.sharedWorkspace.notificationCenter;
    QPointer<QObject> guard(owner);
    auto notice = ^(NSNotification*) {
      if (guard) lock();
    };
    for (NSNotificationName name :
         {NSWorkspaceScreensDidSleepNotification, NSWorkspaceSessionDidResignActiveNotification})
        [center addObserverForName:name
                            object:nil
                             queue:NSOperationQueue.mainQueue
                        usingBlock:notice];
}

}  // namespace bc::app
