import AppKit
import WakelatchGuard

final class AppDelegate: NSObject, NSApplicationDelegate {
  private let guardian = WakelatchGuard()
  private let item = NSStatusBar.system.statusItem(withLength: NSStatusItem.variableLength)
  private let line = NSMenuItem(title: "Starting", action: nil, keyEquivalent: "")

  func applicationDidFinishLaunching(_ notification: Notification) {
    let menu = NSMenu()
    menu.addItem(line)
    menu.addItem(
      withTitle: "Quit", action: #selector(NSApplication.terminate(_:)), keyEquivalent: "q")
    item.menu = menu
    item.button?.title = "…"
    guardian.onStatus = { [item, line] status in
      item.button?.title = status.keepsAwake ? "●" : "○"
      line.title = "\(status.title): \(status.reason)"
    }
    guardian.onNotice = { text in NSLog("%@", text) }  // an application would show it
    guardian.start()
  }

  func applicationShouldTerminate(_ sender: NSApplication) -> NSApplication.TerminateReply {
    guardian.stop { restored in
      if !restored { NSLog("The lid-closed setting may still be engaged.") }
      sender.reply(toApplicationShouldTerminate: true)
    }
    return .terminateLater
  }
}

let delegate = AppDelegate()
let application = NSApplication.shared
application.delegate = delegate
application.setActivationPolicy(.accessory)
application.run()
