# A screen reader: reads the labels of the application with an "… ZELNA …" check box, then toggles that box.
import pyatspi, time
def find(n, role): return [n] * (n.getRole() == role) + [x for c in n for x in find(c, role)]
while not (boxes := [b for a in pyatspi.Registry.getDesktop(0) for b in find(a, pyatspi.ROLE_CHECK_BOX) if 'ZELNA' in b.name]):
    time.sleep(0.1)
for label in find(boxes[0].getApplication(), pyatspi.ROLE_LABEL): print('label:', label.name, '|', label.description)
action = boxes[0].queryAction(); action.doAction([action.getName(i) for i in range(action.nActions)].index('Toggle'))
