// Opens the shell to Vantrel's GNOME tray test: unsafe mode lets Eval and Screenshot answer on the
// session bus, and global.vantrelTest reads and clicks the AppIndicator button as a user sees it.
const { Clutter, GLib } = imports.gi;
const Main = imports.ui.main;
const { PopupSeparatorMenuItem } = imports.ui.popupMenu;

let pointer = null;

function button() {
    return Object.entries(Main.panel.statusArea)
        .find(([key, value]) => key.startsWith('appindicator-') && value)?.[1];
}

// Whether the button shows an icon and its menu is open, and the entries as [label, sensitive].
function indicator() {
    const shown = button();
    return shown && {
        icon: !!(shown.visible && shown.icon.gicon),
        open: shown.menu.isOpen,
        items: shown.menu._getMenuItems()
            .filter(item => item.visible && !(item instanceof PopupSeparatorMenuItem))
            .map(item => [item.label.text, item.sensitive]),
    };
}

// A left click on the button, or on the menu entry with that label, through a virtual pointer
// of the shell's own seat: the headless shell has no other input device.
function click(label) {
    const shown = button();
    const actor = label === undefined
        ? shown : shown.menu._getMenuItems().find(item => item.label?.text === label);
    pointer ??= Clutter.get_default_backend().get_default_seat()
        .create_virtual_device(Clutter.InputDeviceType.POINTER_DEVICE);
    const [x, y] = actor.get_transformed_position();
    const [width, height] = actor.get_transformed_size();
    const now = GLib.get_monotonic_time();
    pointer.notify_absolute_motion(now, x + width / 2, y + height / 2);
    pointer.notify_button(now, Clutter.BUTTON_PRIMARY, Clutter.ButtonState.PRESSED);
    pointer.notify_button(now + 50000, Clutter.BUTTON_PRIMARY, Clutter.ButtonState.RELEASED);
}

function init() {
    return {
        enable() {
            global.context.unsafe_mode = true;
            global.vantrelTest = { indicator, click };
        },
        disable() {
            delete global.vantrelTest;
        },
    };
}
