'''A GeoClue2 service for tests, loaded by python3-dbusmock as a template:
the Manager with one Client, whose Start either fails as a denying agent
makes it fail or publishes a Location object and announces it with
LocationUpdated. Parameters (-p JSON): "deny" (bool), "latitude",
"longitude", "accuracy" (metres), "age" (seconds the fix is old), "silent"
(bool: Start succeeds but no fix comes). The control method EmitFix sends
another fix later.
'''

import time

import dbus

BUS_NAME = 'org.freedesktop.GeoClue2'
MAIN_OBJ = '/org/freedesktop/GeoClue2/Manager'
MAIN_IFACE = 'org.freedesktop.GeoClue2.Manager'
SYSTEM_BUS = True

CLIENT_PATH = '/org/freedesktop/GeoClue2/Client/1'
CLIENT_IFACE = 'org.freedesktop.GeoClue2.Client'
LOCATION_IFACE = 'org.freedesktop.GeoClue2.Location'
CONTROL_IFACE = 'org.lumeo.TestGeoClue'
MOCK_IFACE = 'org.freedesktop.DBus.Mock'

# Runs inside the Client's Start: refuses, or publishes the configured fix.
START_CODE = '''
manager = objects['/org/freedesktop/GeoClue2/Manager']
if manager.Get('org.lumeo.TestGeoClue', 'Deny'):
    raise dbus.exceptions.DBusException('Geolocation disabled for this application',
                                        name='org.freedesktop.DBus.Error.AccessDenied')
self.Set('org.freedesktop.GeoClue2.Client', 'Active', True)
if not manager.Get('org.lumeo.TestGeoClue', 'Silent'):
    manager.EmitFix(manager.Get('org.lumeo.TestGeoClue', 'Latitude'),
                    manager.Get('org.lumeo.TestGeoClue', 'Longitude'),
                    manager.Get('org.lumeo.TestGeoClue', 'Accuracy'),
                    manager.Get('org.lumeo.TestGeoClue', 'Age'))
'''


def load(mock, parameters):
    mock.AddMethods(MAIN_IFACE, [
        ('GetClient', '', 'o', f'ret = dbus.ObjectPath("{CLIENT_PATH}")'),
        ('CreateClient', '', 'o', f'ret = dbus.ObjectPath("{CLIENT_PATH}")'),
        ('DeleteClient', 'o', '', ''),
    ])
    mock.AddProperties(MAIN_IFACE, dbus.Dictionary({
        'InUse': False,
        'AvailableAccuracyLevel': dbus.UInt32(8),
    }, signature='sv'))
    mock.AddProperties(CONTROL_IFACE, dbus.Dictionary({
        'Deny': dbus.Boolean(parameters.get('deny', False)),
        'Silent': dbus.Boolean(parameters.get('silent', False)),
        'Latitude': dbus.Double(parameters.get('latitude', 48.2082)),
        'Longitude': dbus.Double(parameters.get('longitude', 16.3738)),
        'Accuracy': dbus.Double(parameters.get('accuracy', 25.0)),
        'Age': dbus.Double(parameters.get('age', 0.0)),
        'Fixes': dbus.UInt32(0),
    }, signature='sv'))
    mock.AddObject(CLIENT_PATH, CLIENT_IFACE, {
        'Location': dbus.ObjectPath('/'),
        'DistanceThreshold': dbus.UInt32(0),
        'TimeThreshold': dbus.UInt32(0),
        'DesktopId': '',
        'RequestedAccuracyLevel': dbus.UInt32(0),
        'Active': False,
    }, [
        ('Start', '', '', START_CODE),
        ('Stop', '', '', 'self.Set("org.freedesktop.GeoClue2.Client", "Active", False)'),
    ])


@dbus.service.method(MOCK_IFACE, in_signature='dddd', out_signature='')
def EmitFix(self, latitude, longitude, accuracy, age):
    '''Publishes a new Location object and announces it to the client.'''
    client = dbusmock.get_object(CLIENT_PATH)
    count = int(self.Get(CONTROL_IFACE, 'Fixes')) + 1
    self.Set(CONTROL_IFACE, 'Fixes', dbus.UInt32(count))
    path = f'{CLIENT_PATH}/Location/{count}'
    when = time.time() - float(age)
    self.AddObject(path, LOCATION_IFACE, {
        'Latitude': dbus.Double(latitude),
        'Longitude': dbus.Double(longitude),
        'Accuracy': dbus.Double(accuracy),
        'Altitude': dbus.Double(-1.7976931348623157e308),
        'Speed': dbus.Double(-1.0),
        'Heading': dbus.Double(-1.0),
        'Description': '',
        'Timestamp': dbus.Struct((dbus.UInt64(int(when)), dbus.UInt64(int((when % 1) * 1e6))), signature='tt'),
    }, [])
    old = client.Get(CLIENT_IFACE, 'Location')
    client.Set(CLIENT_IFACE, 'Location', dbus.ObjectPath(path))
    client.EmitSignal(CLIENT_IFACE, 'LocationUpdated', 'oo', [old, dbus.ObjectPath(path)])


@dbus.service.method(MOCK_IFACE, in_signature='b', out_signature='')
def SetDeny(self, deny):
    '''Makes the next Start fail (or succeed again).'''
    self.Set(CONTROL_IFACE, 'Deny', dbus.Boolean(deny))


import dbusmock  # noqa: E402  (for get_object inside EmitFix)
