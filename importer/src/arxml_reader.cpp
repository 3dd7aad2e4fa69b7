// AUTOSAR ARXML (Adaptive platform): service interfaces joined to their SOME/IP deployments through
// reference paths, with the serialization properties mapped onto their events, methods and fields.
//
//   every file -> one path index -> TLV data ID sets, property mappings, per-element overrides
//              -> for each deployment: its interface's events, methods and fields -> builder
//
// An interface, event, method or field without a deployment is reported and left out: its IDs would
// be guesses.
#include <map>
#include <memory>
#include <set>

#include "arxml_index.h"
#include "arxml_types.h"
#include "readers.h"

namespace ZQSomeIP {
namespace import {

namespace {

// How one event, method or field is serialized: the properties mapped to it and the TLV data IDs in
// force for it.
struct Mapping {
    const SerializationProps* props = nullptr;
    std::string_view propsPath;  // paths here and below: views into the index
    std::map<std::string_view, uint32_t> dataIds;
    std::string tlvKey;  // the data ID sets' paths
};

// A field's IDs; -1 when given but out of range (reported there), kAbsent when not given.
struct FieldIds {
    static constexpr int kAbsent = -2;
    int getter = kAbsent, setter = kAbsent, notifier = kAbsent;
};

class ArxmlReader {
public:
    ArxmlReader(const std::vector<const XmlInput*>& inputs, FormatBuilder& out, Report& report)
        : index_(inputs,
                 {"SERVICE-INTERFACE", "SOMEIP-SERVICE-INTERFACE-DEPLOYMENT", "TRANSFORMATION-PROPS-TO-SERVICE-INTERFACE-ELEMENT-MAPPING",
                  "SOMEIP-DATA-PROTOTYPE-TRANSFORMATION-PROPS", "TLV-DATA-ID-DEFINITION-SET"},
                 report),
          out_(out),
          report_(report),
          types_(index_, out, report, overrides_)
    {
    }

    void read()
    {
        readDataIds();
        readMappings();
        readOverrides();
        std::set<std::string_view> deployed;
        for (const Element& d : index_.all("SOMEIP-SERVICE-INTERFACE-DEPLOYMENT")) {
            const Element si = index_.resolveChild(d, "SERVICE-INTERFACE-REF");
            if (!si) {
                skip(d, child(d.node, "SERVICE-INTERFACE-REF") ? "the deployment's interface is not found; left out"
                                                                : "the deployment names no SERVICE-INTERFACE-REF; left out");
                continue;
            }
            deployed.insert(index_.pathOf(si.node));
            service(d, si);
        }
        for (const Element& si : index_.all("SERVICE-INTERFACE")) {
            if (deployed.count(index_.pathOf(si.node)) == 0) {
                skip(si, "the service interface has no SOME/IP deployment, so no IDs; left out");
            }
        }
    }

private:
    void skip(const Element& at, const std::string& reason) { report_.skipped(index_.place(at), reason); }

    // A number of the deployment in 0..max, or -1 (reported) when it is absent or out of range.
    int64_t id(const Element& owner, const char* name, uint64_t max)
    {
        const pugi::xml_node n = child(owner.node, name);
        uint64_t v = 0;
        if (!n || !parseUnsigned(text(n), max, v)) {
            skip(owner, n ? std::string(name) + " " + text(n) + " is out of range (0.." + std::to_string(max) + "); left out"
                          : std::string("has no ") + name + "; left out");
            return -1;
        }
        return static_cast<int64_t>(v);
    }

    // Event IDs travel with bit 15 set; a deployment may give them with or without it.
    static int eventId(int64_t v) { return v < 0 ? -1 : static_cast<int>(v | 0x8000); }

    const SerializationProps* props(const Element& at)
    {
        const std::string_view path = index_.pathOf(at.node);
        auto known = props_.find(path);
        if (known == props_.end()) {
            known = props_.emplace(path, std::make_unique<SerializationProps>(SerializationProps::read(index_, at, report_))).first;
        }
        return known->second.get();
    }

    void readDataIds()
    {
        for (const Element& set : index_.all("TLV-DATA-ID-DEFINITION-SET")) {
            auto& ids = dataIds_[index_.pathOf(set.node)];
            forChildren(child(set.node, "TLV-DATA-ID-DEFINITIONS"), "TLV-DATA-ID-DEFINITION", [&](pugi::xml_node n) {
                const Element def{set.input, n};
                const int64_t dataId = id(def, "ID", 4095);
                pugi::xml_node ref = child(n, "TLV-ARGUMENT-REF");
                ref = ref ? ref : child(n, "TLV-IMPLEMENTATION-DATA-TYPE-ELEMENT-REF");
                if (!ref) {
                    if (dataId >= 0) {
                        skip(def, "the data ID names no argument or implementation data type element; left out");
                    }
                    return;
                }
                const Element target = index_.resolve({set.input, ref});
                if (dataId >= 0 && target) {
                    ids[index_.pathOf(target.node)] = static_cast<uint32_t>(dataId);
                }
            });
        }
    }

    void readMappings()
    {
        for (const Element& m : index_.all("TRANSFORMATION-PROPS-TO-SERVICE-INTERFACE-ELEMENT-MAPPING")) {
            auto mapping = std::make_unique<Mapping>();
            const Element p = index_.resolveChild(m, "TRANSFORMATION-PROPS-REF");
            if (p) {
                mapping->props = props(p);
                mapping->propsPath = index_.pathOf(p.node);
            }
            forChildren(child(m.node, "TLV-DATA-ID-DEFINITION-REFS"), "TLV-DATA-ID-DEFINITION-REF", [&](pugi::xml_node r) {
                const Element set = index_.resolve({m.input, r});
                if (set) {
                    const std::string_view path = index_.pathOf(set.node);
                    mapping->tlvKey.append(path) += ';';
                    const auto& ids = dataIds_[path];
                    mapping->dataIds.insert(ids.begin(), ids.end());
                }
            });
            for (const auto& [list, refName] : {std::pair<const char*, const char*>{"EVENT-REFS", "EVENT-REF"},
                                                {"METHOD-REFS", "METHOD-REF"},
                                                {"FIELD-REFS", "FIELD-REF"}}) {
                forChildren(child(m.node, list), refName, [&](pugi::xml_node r) {
                    const Element target = index_.resolve({m.input, r});
                    if (!target) {
                        return;
                    }
                    const std::string_view path = index_.pathOf(target.node);
                    if (mappingOf_.count(path) != 0) {
                        report_.duplicate(index_.place({m.input, r}),
                                          "a second property mapping for " + std::string(path) + "; the later one is used");
                    }
                    mappingOf_[path] = mapping.get();
                });
            }
            mappings_.push_back(std::move(mapping));
        }
    }

    // Overrides name a data prototype (the root) and, inside its type, perhaps a member (the target).
    void readOverrides()
    {
        for (const Element& o : index_.all("SOMEIP-DATA-PROTOTYPE-TRANSFORMATION-PROPS")) {
            const Element p = index_.resolveChild(o, "SOMEIP-TRANSFORMATION-PROPS-REF");
            if (!p) {
                if (!child(o.node, "SOMEIP-TRANSFORMATION-PROPS-REF")) {
                    skip(o, "the override names no SOMEIP-TRANSFORMATION-PROPS-REF; left out");
                }
                continue;
            }
            const SerializationProps* settings = props(p);
            forChildren(child(o.node, "DATA-PROTOTYPES"), "DATA-PROTOTYPE-IN-SERVICE-INTERFACE-REF", [&](pugi::xml_node r) {
                const pugi::xml_node inner = child(r, "ELEMENT-IN-IMPL-DATATYPE");
                const pugi::xml_node rootRef = inner ? child(inner, "ROOT-DATA-PROTOTYPE-REF") : child(r, "DATA-PROTOTYPE-REF");
                const pugi::xml_node targetRef = inner ? child(inner, "TARGET-DATA-PROTOTYPE-REF") : pugi::xml_node();
                if (!rootRef) {
                    skip({o.input, r}, "the override names no data prototype; left out");
                    return;
                }
                const Element root = index_.resolve({o.input, rootRef});
                const Element target = targetRef ? index_.resolve({o.input, targetRef}) : Element{};
                if (root && (!targetRef || target)) {
                    overrides_[index_.pathOf(root.node)].push_back(
                        {target ? index_.pathOf(target.node) : std::string_view(), settings});
                }
            });
        }
    }

    // The deployment's element references, by the path of the interface element they name; elements of
    // other interfaces are reported.
    template <typename F>
    void deployments(const Element& d, std::string_view interfacePath, const char* list, const char* kind,
                     const char* refName, F take)
    {
        forChildren(child(d.node, list), kind, [&](pugi::xml_node n) {
            const Element e{d.input, n};
            const Element target = index_.resolveChild(e, refName);
            if (!target) {
                if (!child(n, refName)) {
                    skip(e, std::string("names no ") + refName + "; left out");
                }
                return;
            }
            const std::string_view path = index_.pathOf(target.node);
            if (path.size() <= interfacePath.size() || path.substr(0, interfacePath.size()) != interfacePath ||
                path[interfacePath.size()] != '/') {
                skip(e, std::string(path) + " is not an element of the deployed interface " + std::string(interfacePath) +
                            "; left out");
                return;
            }
            take(e, path);
        });
    }

    // The IDs a service deployment gives its interface's methods, events and fields, by their paths.
    struct DeployedIds {
        std::map<std::string_view, int> methods, events;
        std::map<std::string_view, FieldIds> fields;
    };
    DeployedIds deployedIds(const Element& d, std::string_view interfacePath)
    {
        DeployedIds ids;
        deployments(d, interfacePath, "METHOD-DEPLOYMENTS", "SOMEIP-METHOD-DEPLOYMENT", "METHOD-REF",
                    [&](const Element& e, std::string_view path) { ids.methods[path] = static_cast<int>(id(e, "METHOD-ID", 0x7FFF)); });
        deployments(d, interfacePath, "EVENT-DEPLOYMENTS", "SOMEIP-EVENT-DEPLOYMENT", "EVENT-REF",
                    [&](const Element& e, std::string_view path) { ids.events[path] = eventId(id(e, "EVENT-ID", 0xFFFF)); });
        deployments(d, interfacePath, "FIELD-DEPLOYMENTS", "SOMEIP-FIELD-DEPLOYMENT", "FIELD-REF",
                    [&](const Element& e, std::string_view path) {
                        FieldIds& f = ids.fields[path];
                        if (const pugi::xml_node g = child(e.node, "GET")) {
                            f.getter = static_cast<int>(id({e.input, g}, "METHOD-ID", 0x7FFF));
                        }
                        if (const pugi::xml_node s = child(e.node, "SET")) {
                            f.setter = static_cast<int>(id({e.input, s}, "METHOD-ID", 0x7FFF));
                        }
                        if (const pugi::xml_node n = child(e.node, "NOTIFIER")) {
                            f.notifier = eventId(id({e.input, n}, "EVENT-ID", 0xFFFF));
                        }
                    });
        return ids;
    }

    void service(const Element& d, const Element& si)
    {
        const std::string_view interfacePath = index_.pathOf(si.node);
        const int64_t serviceId = id(d, "SERVICE-INTERFACE-ID", 0xFFFF);
        int64_t major = -1;
        if (const pugi::xml_node version = child(d.node, "SERVICE-INTERFACE-VERSION");
            version && child(version, "MAJOR-VERSION")) {
            major = id({d.input, version}, "MAJOR-VERSION", 255);
            if (major < 0) {
                skip(d, "the deployment's interface version is out of range; left out");
                return;
            }
        }
        if (serviceId < 0) {
            return;
        }
        const DeployedIds ids = deployedIds(d, interfacePath);
        eventGroups(d);

        std::vector<Element> events, methods, fields;
        forChildren(child(si.node, "EVENTS"), "VARIABLE-DATA-PROTOTYPE", [&](pugi::xml_node n) { events.push_back({si.input, n}); });
        forChildren(child(si.node, "METHODS"), "CLIENT-SERVER-OPERATION", [&](pugi::xml_node n) { methods.push_back({si.input, n}); });
        forChildren(child(si.node, "FIELDS"), "FIELD", [&](pugi::xml_node n) { fields.push_back({si.input, n}); });

        const Attributes attributes = serviceAttributes({&events, &methods, &fields});
        methodUsers_.clear();
        eventUsers_.clear();
        const size_t s = out_.service(index_.place(d), static_cast<uint16_t>(serviceId), static_cast<int>(major),
                                      PathIndex::shortName(si.node), attributes);
        for (const Element& e : events) {
            const auto found = ids.events.find(index_.pathOf(e.node));
            FormatBuilder::List list;
            if (found == ids.events.end()) {
                skip(e, "the event has no SOME/IP event deployment; left out");
            } else if (found->second >= 0 && claim(e, eventUsers_, found->second) && parameters(e, {e}, attributes, list)) {
                out_.event(s, PathIndex::shortName(e.node), static_cast<uint16_t>(found->second), list);
            }
        }
        for (const Element& m : methods) {
            const auto found = ids.methods.find(index_.pathOf(m.node));
            if (found == ids.methods.end()) {
                skip(m, "the method has no SOME/IP method deployment; left out");
            } else if (found->second >= 0 && claim(m, methodUsers_, found->second)) {
                method(s, m, static_cast<uint16_t>(found->second), attributes);
            }
        }
        for (const Element& f : fields) {
            const auto found = ids.fields.find(index_.pathOf(f.node));
            if (found == ids.fields.end()) {
                skip(f, "the field has no SOME/IP field deployment; left out");
            } else {
                field(s, f, found->second, attributes);
            }
        }
    }

    // An ID for one element of the service only: a second user of it is reported and left out, since a
    // message could not tell them apart.
    bool claim(const Element& e, std::map<int, std::string_view>& users, int id)
    {
        const std::string_view path = index_.pathOf(e.node);
        const auto [at, fresh] = users.emplace(id, path);
        if (!fresh && at->second != path) {
            skip(e, "ID " + std::to_string(id) + " is already used by " + std::string(at->second) + "; left out");
            return false;
        }
        return true;
    }

    // Event groups have no place in a format file; their IDs and references are still checked, since a
    // broken group points at a broken deployment.
    void eventGroups(const Element& d)
    {
        forChildren(child(d.node, "EVENT-GROUPS"), "SOMEIP-EVENT-GROUP", [&](pugi::xml_node g) {
            ++report_.data().eventGroups;
            const Element group{d.input, g};
            id(group, "EVENT-GROUP-ID", 0xFFFF);
            forChildren(child(g, "EVENT-REFS"), "EVENT-REF", [&](pugi::xml_node r) { index_.resolve({d.input, r}); });
        });
    }

    // The service's attributes: those of the properties mapped to most of its elements (the first in
    // path order on a tie), so that elements restate only what differs.
    Attributes serviceAttributes(const std::vector<const std::vector<Element>*>& lists)
    {
        std::map<std::string_view, std::pair<size_t, const SerializationProps*>> counts;
        for (const auto* list : lists) {
            for (const Element& e : *list) {
                const auto m = mappingOf_.find(index_.pathOf(e.node));
                if (m != mappingOf_.end() && m->second->props != nullptr) {
                    auto& c = counts[m->second->propsPath];
                    c.first++;
                    c.second = m->second->props;
                }
            }
        }
        const SerializationProps* best = nullptr;
        size_t most = 0;
        for (const auto& [path, c] : counts) {
            if (c.first > most) {
                most = c.first;
                best = c.second;
            }
        }
        return best != nullptr && best->ok ? best->over(Attributes{}) : Attributes{};
    }

    // The parameter list of data prototypes (an event's or field's value, a method's arguments of one
    // direction) under the mapping of the element they belong to; false (reported) when one cannot be
    // written, since the list would decode wrongly without it.
    bool parameters(const Element& owner, const std::vector<Element>& protos, const Attributes& service,
                    FormatBuilder::List& list)
    {
        const std::string_view ownerPath = index_.pathOf(owner.node);
        const auto m = mappingOf_.find(ownerPath);
        const Mapping* mapping = m == mappingOf_.end() ? nullptr : m->second;
        TypeWriter::Use use;
        if (mapping != nullptr && mapping->props != nullptr) {
            if (!mapping->props->ok) {
                skip(owner, "its serialization properties cannot be written; left out");
                return false;
            }
            use.listProps = mapping->props;
            use.list = mapping->props->over(Attributes{});
        }
        if (mapping != nullptr) {
            use.dataIds = &mapping->dataIds;
            use.tlvKey = mapping->tlvKey;
        }
        size_t withId = 0;
        for (const Element& p : protos) {
            use.root = index_.pathOf(p.node);
            FormatBuilder::Param param;
            if (!types_.prototype(p, use, param)) {
                skip(p, p.node == owner.node ? "its type cannot be written; left out"
                                             : "its type cannot be written; " + std::string(ownerPath) + " is left out");
                return false;
            }
            if (use.dataIds != nullptr && use.dataIds->count(use.root) != 0) {
                param.hasDataId = true;
                param.dataId = use.dataIds->at(use.root);
                ++withId;
            }
            FormatBuilder::param(list, param);
        }
        if (withId != 0 && withId != protos.size()) {
            skip(owner, "only some arguments have TLV data IDs; left out");
            return false;
        }
        if (withId != 0) {
            list.keys["Tlv"] = true;
        }
        const Json::Value attribute = use.listProps == nullptr
                                          ? (use.list == service ? Json::Value() : use.list.differences(service))
                                          : use.listProps->attribute(use.list, service, mapping != nullptr && !mapping->dataIds.empty());
        if (!attribute.isNull()) {
            list.keys["Attribute"] = attribute;
        }
        return true;
    }

    void method(size_t s, const Element& m, uint16_t methodId, const Attributes& service)
    {
        std::vector<Element> in, out;
        pugi::xml_node badDirection;
        forChildren(child(m.node, "ARGUMENTS"), "ARGUMENT-DATA-PROTOTYPE", [&](pugi::xml_node a) {
            const std::string direction = childText(a, "DIRECTION");
            if (direction != "IN" && direction != "OUT" && direction != "INOUT" && !badDirection) {
                badDirection = a;
            }
            if (direction == "IN" || direction == "INOUT") {
                in.push_back({m.input, a});
            }
            if (direction == "OUT" || direction == "INOUT") {
                out.push_back({m.input, a});
            }
        });
        if (badDirection) {
            skip({m.input, badDirection}, "argument direction \"" + childText(badDirection, "DIRECTION") +
                                              "\" is not IN, OUT or INOUT; the method is left out");
            return;
        }
        const bool fireAndForget = isTrue(childText(m.node, "FIRE-AND-FORGET"));
        if (fireAndForget && !out.empty()) {
            skip(m, "a fire-and-forget method with OUT arguments; left out");
            return;
        }
        FormatBuilder::List request, response;
        if (parameters(m, in, service, request) && (fireAndForget || parameters(m, out, service, response))) {
            out_.method(s, PathIndex::shortName(m.node), methodId, request, fireAndForget ? nullptr : &response);
        }
    }

    void field(size_t s, const Element& f, const FieldIds& ids, const Attributes& service)
    {
        int parts[3] = {-1, -1, -1};
        const char* flags[3] = {"HAS-GETTER", "HAS-SETTER", "HAS-NOTIFIER"};
        const int given[3] = {ids.getter, ids.setter, ids.notifier};
        for (int i = 0; i < 3; ++i) {
            if (!isTrue(childText(f.node, flags[i]))) {
                continue;
            }
            const pugi::xml_node part = child(f.node, flags[i]);
            if (given[i] == FieldIds::kAbsent) {
                report_.skipped(f.input->place(part, std::string(index_.pathOf(f.node))),
                                std::string("the field's deployment gives no ID for ") + flags[i] + "; that part is left out");
            }
            parts[i] = given[i] >= 0 && claim(f, i == 2 ? eventUsers_ : methodUsers_, given[i]) ? given[i] : -1;
        }
        FormatBuilder::List value;
        if ((parts[0] >= 0 || parts[1] >= 0 || parts[2] >= 0) && parameters(f, {f}, service, value)) {
            out_.field(s, PathIndex::shortName(f.node), parts[0], parts[1], parts[2], value);
        }
    }

    PathIndex index_;
    FormatBuilder& out_;
    Report& report_;
    Overrides overrides_;
    TypeWriter types_;
    // Paths as views into the index, which outlives them.
    std::map<std::string_view, std::map<std::string_view, uint32_t>> dataIds_;  // set path -> element path -> ID
    std::map<std::string_view, std::unique_ptr<SerializationProps>> props_;
    std::vector<std::unique_ptr<Mapping>> mappings_;
    std::map<std::string_view, const Mapping*> mappingOf_;  // event, method or field path -> its mapping
    std::map<int, std::string_view> methodUsers_, eventUsers_;  // of the service being read: ID -> element path
};

}  // namespace

void readArxml(const std::vector<const XmlInput*>& inputs, FormatBuilder& out, Report& report)
{
    ArxmlReader(inputs, out, report).read();
}

}  // namespace import
}  // namespace ZQSomeIP
