#!/usr/bin/python
"""The settings of a device."""

DOCUMENTATION = r"""
module: settings
short_description: Settings of a networked video device
description:
  - Sets what differs, in the order in which settings have an effect, and reads it back. Idempotent.
  - All values are checked before the first is sent. When the device refuses one, or stores another one, the old values are
    put back, and the task fails; also after the device was lost meanwhile, if it comes back in time.
  - Runs where the device is reached from, which is usually the controller, C(connection=local).
options:
  values:
    description:
      - Settings by name, each with a number, or with what people write, as C("70 %"), C("ProRes 422") or C("10.0.0.9").
      - They count more than those of O(src).
    type: dict
    default: {}
  secrets:
    description: Likewise, for passwords, which are neither logged nor shown.
    type: dict
    default: {}
  src:
    description: A file of settings, as C(vexactl save) writes it, where the module runs.
    type: path
  model:
    description: The only model that will do; else that of O(src), if it names one.
    type: str
requirements: [vexa (the Python package), Python 3.11 for O(src)]
extends_documentation_fragment: [vexa.device.device]
author: The vexaconfig developers (@vexaconfig)
"""

EXAMPLES = r"""
- name: Fans of the machine room
  vexa.device.settings:
    device: "{{ inventory_hostname }}"
    values:
      FanSpeed: 70 %
      ReelName: A012

- name: All that was saved from the first one
  vexa.device.settings:
    device: "{{ inventory_hostname }}"
    src: files/recorder.toml
    secrets:
      SystemPassword: "{{ vault_recorder_password }}"
"""

RETURN = r"""
settings:
  description: What was changed, or in check mode would be, by name. After a failure, what was to be changed.
  returned: unless the file or the device could not be read
  type: dict
  sample: {"FanSpeed": {"before": "50 %", "after": "70 %"}}
"""

import time

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vexa.device.plugins.module_utils.connection import OPTIONS, connect, is_secret

HIDDEN, HIDDEN_NEW = "********", "******** (another one)"


def read_file(path):
    """Its model, or None, and its settings. Raises ValueError."""
    import tomllib  # the Python of a controller may be too old to have it, and its playbooks without files

    with open(path, "rb") as file:
        try:
            document = tomllib.load(file)
        except (tomllib.TOMLDecodeError, UnicodeDecodeError) as error:
            raise ValueError(f"{path}: {error}") from error
    for key in document:
        if key not in ("device", "settings") or not isinstance(document[key], dict):
            raise ValueError(f"{path}: a file of settings has [device] and [settings], not {key}")
    model = document.get("device", {}).get("model")
    if model is not None and not isinstance(model, str):
        raise ValueError(f"{path}: the model of [device] is a text, not {model}")
    return model, document.get("settings", {})


def plain(value):
    """What stands in a file or a playbook as the package takes it: dates and times as texts, { hex = "00ff" } as bytes."""
    if isinstance(value, dict) and set(value) == {"hex"}:
        return bytes.fromhex(str(value["hex"]))
    if isinstance(value, (dict, list)):
        raise ValueError("it takes a number or a text")
    return value if isinstance(value, (int, float, str)) else str(value)


def wanted(module, device, file_settings):
    """The values by the names of the device, as it would hold them; the objections."""
    values, objections = {}, []
    for source in (file_settings, module.params["values"], module.params["secrets"]):
        named = set()
        for name, value in source.items():
            try:
                parameter = device.info(name)
                if parameter.name in named:
                    objections.append(f"{parameter.name}: named twice")
                named.add(parameter.name)
                if not parameter.is_setting:
                    objections.append(f"{parameter.name}: no setting: the device does not keep it, or reports it")
                elif source is module.params["values"] and is_secret(parameter):
                    objections.append(f"{parameter.name}: a password, which belongs under secrets")
                elif source is file_settings and isinstance(value, bool):  # in a playbook On is one, not in a file
                    objections.append(f"{parameter.name}: it takes a number or a text")
                else:
                    values[parameter.name] = parameter.parse(plain(value))
            except (LookupError, ValueError, TypeError) as error:
                objections.append(str(error) if str(error).startswith(name) else f"{name}: {error}")
    return values, objections


def change(device, name, before, after):
    parameter = device.info(name)
    if is_secret(parameter):
        return {"before": HIDDEN, "after": HIDDEN_NEW}
    return {"before": parameter.format(before), "after": parameter.format(after)}


def differences(device, values):
    """The values that the device has of those that differ; the objections against the others."""
    now = device.values(*values) if values else {}
    before = {name: now[name] for name in values if name in now and now[name] != values[name]}
    objections = [f"{name}: {objection}" for name in before
                  if (objection := device.info(name).objection(values[name]))]
    objections += [f"{name}: the device has no value for it" for name in values if name not in now]
    return before, objections


def put_back(device, before):
    """Sets what differs one by one: of many, one value that is out of its range by now would keep the others from being
    sent. Twice, because what depends on another value comes after it. The names of what still differs."""
    for is_last in (False, False, True):
        now = device.values(*before)
        left = [name for name in reversed(list(before)) if now.get(name) != before[name]]
        if is_last or not left:
            return left
        for name in left:
            device.set(name, before[name])


def put_back_in_time(device, before, timeout):
    """put_back, again for so many seconds where the device is lost. Raises OSError when it does not come back."""
    end = time.monotonic() + timeout
    while True:
        device.wait(max(0, end - time.monotonic()))
        try:
            return put_back(device, before)
        except OSError:
            if time.monotonic() > end:
                raise
            time.sleep(0.1)  # it may not have noticed yet that the device is lost


def carry(device, before, values, timeout):
    """Sets them, and puts back what was there if one is not stored. The objections."""
    results = device.set_many({name: values[name] for name in before})
    failed = [f"{name}: {result.reason}" for name, result in results.items() if not result]
    if not failed:
        return []
    try:
        left = put_back_in_time(device, before, timeout)
        return failed + [f"not put back: {', '.join(left)}" if left else "the old values are back"]
    except OSError as error:
        reason = str(error)
    unknown = [name for name, result in results.items() if result.outcome.name == "UNKNOWN"]
    stored = [name for name in before if name not in unknown]
    return failed + [f"{what}, not put back: {', '.join(names)}" for what, names in (
        ("sent, not confirmed", unknown), ("sent", stored)) if names] + [reason]


def main():
    module = AnsibleModule(
        argument_spec={**OPTIONS, "values": {"type": "dict", "default": {}},
                       "secrets": {"type": "dict", "default": {}, "no_log": True}, "src": {"type": "path"}},
        supports_check_mode=True)
    path, file_settings = module.params["src"], {}
    try:
        if path:
            model, file_settings = read_file(path)
            module.params["model"] = module.params["model"] or model
        device = connect(module)
        values, objections = wanted(module, device, file_settings)
        before, more = differences(device, values)
        objections += more
        changes = {name: change(device, name, before[name], values[name]) for name in before}
        if not objections and before and not module.check_mode:
            objections = carry(device, before, values, module.params["timeout"])
    except (LookupError, OSError, ValueError) as error:
        module.fail_json(msg=str(error))
    if objections:
        module.fail_json(msg=f"{device.address}: " + "; ".join(objections), settings=changes)
    sides = {side: "".join(f"{name} = {change[side]}\n" for name, change in changes.items())
             for side in ("before", "after")}
    module.exit_json(changed=bool(changes), settings=changes, diff={**sides, "before_header": device.address,
                                                                     "after_header": device.address})


if __name__ == "__main__":
    main()
