# A desktop on the display: a window manager, and another client with a window "other" that prints the launch
# feedback messages and each active window it sees on the root window.
import subprocess
from Xlib import X, display
d = display.Display(); r = d.screen().root; r.change_attributes(event_mask=X.PropertyChangeMask); m = b''
w = r.create_window(0, 0, 99, 99, 0, 0); w.set_wm_name('other'); w.map(); subprocess.Popen(['openbox', '--sm-disable'])
while not r.get_full_property(d.intern_atom('_NET_SUPPORTING_WM_CHECK'), 0): d.next_event()
print('ready', flush=True)
while e := d.next_event():
    if e.type == X.ClientMessage: m = (b'' if e.client_type == d.intern_atom('_NET_STARTUP_INFO_BEGIN') else m) + e.data[1]
    if b'\0' in m: print(m[:m.index(b'\0')].decode(), flush=True); m = b''
    if e.type == X.PropertyNotify and e.atom == d.intern_atom('_NET_ACTIVE_WINDOW'):
        active = d.create_resource_object('window', r.get_full_property(e.atom, 0).value[0] or r.id)
        print('active:', active.get_wm_name(), flush=True)
