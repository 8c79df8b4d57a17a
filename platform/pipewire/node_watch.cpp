#include "platform/pipewire/node_watch.h"

#include <cstring>
#include <pipewire/extensions/metadata.h>

namespace nimbrale::pipewire {

struct NodeWatch::Events {
    static NodeWatch& of(void* data) { return *static_cast<NodeWatch*>(data); }

    static void added(void* data, std::uint32_t number, std::uint32_t /*permissions*/, const char* type,
                      std::uint32_t /*version*/, const spa_dict* properties)
    {
        if (!properties)
            return;
        NodeWatch& self = of(data);
        const auto say = [properties](const char* key) { return spa_dict_lookup(properties, key); };
        if (std::strcmp(type, PW_TYPE_INTERFACE_Node) == 0)
            self.handlers_.onAdded(number, {say(PW_KEY_MEDIA_CLASS), say(PW_KEY_MEDIA_ROLE), say(PW_KEY_NODE_NAME),
                                            say(PW_KEY_NODE_NICK), say(PW_KEY_NODE_DESCRIPTION)});
        const char* const name = say(PW_KEY_METADATA_NAME);
        if (self.handlers_.onDefault && std::strcmp(type, PW_TYPE_INTERFACE_Metadata) == 0 && name &&
            std::strcmp(name, "default") == 0)
            self.followDefaults(number);
    }

    static void removed(void* data, std::uint32_t number)
    {
        NodeWatch& self = of(data);
        if (number == self.metadataNumber_) {
            self.metadataNumber_ = SPA_ID_INVALID;
            self.handlers_.onDefault(nullptr, nullptr);
            self.tellManager(false);
        }
        self.handlers_.onRemoved(number);
    }

    static int defaultChanged(void* data, std::uint32_t subject, const char* key, const char* /*type*/,
                              const char* value)
    {
        if (subject == PW_ID_CORE)
            of(data).handlers_.onDefault(key, key ? value : nullptr);
        return 0;
    }
};

std::unique_ptr<NodeWatch> NodeWatch::start(DaemonConnection& connection, Handlers handlers)
{
    std::unique_ptr<NodeWatch> watch(new NodeWatch(connection, std::move(handlers)));
    watch->registry_.reset(
        reinterpret_cast<pw_proxy*>(pw_core_get_registry(connection.core(), PW_VERSION_REGISTRY, 0)));
    if (!watch->registry_)
        return nullptr;
    static const pw_registry_events events = [] {
        pw_registry_events list{};
        list.version = PW_VERSION_REGISTRY_EVENTS;
        list.global = Events::added;
        list.global_remove = Events::removed;
        return list;
    }();
    pw_registry_add_listener(reinterpret_cast<pw_registry*>(watch->registry_.get()), watch->registryListener_.hook(),
                             &events, watch.get());
    return watch;
}

Proxy NodeWatch::bindNode(std::uint32_t number)
{
    return Proxy(static_cast<pw_proxy*>(pw_registry_bind(reinterpret_cast<pw_registry*>(registry_.get()), number,
                                                         PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0)));
}

void NodeWatch::tellManager(bool isThere)
{
    if (handlers_.onManager)
        handlers_.onManager(isThere);
}

void NodeWatch::followDefaults(std::uint32_t number)
{
    metadataListener_.stop();
    metadata_.reset(static_cast<pw_proxy*>(pw_registry_bind(reinterpret_cast<pw_registry*>(registry_.get()), number,
                                                            PW_TYPE_INTERFACE_Metadata, PW_VERSION_METADATA, 0)));
    if (!metadata_)
        return;
    metadataNumber_ = number;
    static const pw_metadata_events events = [] {
        pw_metadata_events list{};
        list.version = PW_VERSION_METADATA_EVENTS;
        list.property = Events::defaultChanged;
        return list;
    }();
    pw_metadata_add_listener(reinterpret_cast<pw_metadata*>(metadata_.get()), metadataListener_.hook(), &events, this);
    tellManager(true);
    // The defaults come in answer to this; what is there is known when they are.
    handlers_.onAsked(connection_.ask());
}

} // namespace nimbrale::pipewire
