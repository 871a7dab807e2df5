#!/usr/bin/python
"""The facts of a device."""

DOCUMENTATION = r"""
module: facts
short_description: Facts of a networked video device
description:
  - Reads the model, the software and the values of a device. Passwords are left out.
  - Runs where the device is reached from, which is usually the controller, C(connection=local).
options:
  patterns:
    description: Names of parameters, as of files; all without one.
    type: list
    elements: str
    default: []
  model:
    description: The only model that will do.
    type: str
requirements: [vexa (the Python package)]
extends_documentation_fragment: [vexa.device.device]
author: The vexaconfig developers (@vexaconfig)
"""

EXAMPLES = r"""
- name: What the device is
  vexa.device.facts:
    device: "{{ inventory_hostname }}"
    patterns: ["Fan*", "SystemState"]

- ansible.builtin.debug:
    msg: "{{ vexa.model }} runs its fan at {{ vexa.texts.FanSpeed }}"
"""

RETURN = r"""
ansible_facts:
  description: Facts for the tasks that follow.
  returned: always
  type: dict
  contains:
    vexa:
      description: The device.
      type: dict
      sample: {"address": "rec-7", "model": "OAK", "software": "1.1.0",
               "values": {"FanSpeed": 70}, "texts": {"FanSpeed": "70 %"}}
"""

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.vexa.device.plugins.module_utils.connection import OPTIONS, connect, is_secret


def main():
    module = AnsibleModule(argument_spec={**OPTIONS, "patterns": {"type": "list", "elements": "str", "default": []}},
                           supports_check_mode=True)
    device = connect(module)
    try:
        values, texts = device.values(*module.params["patterns"]), {}
        for name in list(values):
            if is_secret(device.info(name)):
                del values[name]
            else:
                texts[name] = device.info(name).format(values[name])
                if isinstance(values[name], bytes):
                    values[name] = values[name].hex()
    except (LookupError, OSError) as error:
        module.fail_json(msg=f"{device.address}: {error}")
    status = device.status
    module.exit_json(ansible_facts={"vexa": {"address": device.address, "model": status.model,
                                             "software": status.software, "values": values, "texts": texts}})


if __name__ == "__main__":
    main()
